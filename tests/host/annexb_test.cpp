#include "platform/host/annexb.h"

#include <gtest/gtest.h>

#include <random>
#include <sstream>
#include <string>

namespace record {
namespace {

// Bytes from their digits.
Bytes Hex(const std::string& text) {
  std::istringstream words(text);
  Bytes bytes;
  for (std::string word; words >> word;) {
    for (size_t at = 0; at < word.size(); at += 2)
      bytes.push_back(static_cast<unsigned char>(std::stoi(word.substr(at, 2), nullptr, 16)));
  }
  return bytes;
}

TEST(AnnexBTest, FindsWhatADecoderNeeds) {
  const char* const both = "00000001 670102 00000001 6803";
  const struct {
    const char* what;
    VideoCodec codec;
    const char* unit;
    const char* sets;
    bool complete;
    bool inFront;
    size_t insertion;
  } cases[] = {
      {"short start codes, trailing zeros", VIDEO_CODEC_H264, "000001 670102 0000000001 6803 000001 650900", both,
       true, true, 0},
      {"behind a delimiter", VIDEO_CODEC_H264, "00000001 09f0 0000000001 670102 000001 6803 000001 6509", both,
       true, true, 6},
      {"behind another unit", VIDEO_CODEC_H264, "000001 0605 000001 670102 000001 6803 000001 6509", both, true,
       false, 0},
      {"one of the two", VIDEO_CODEC_H264, "000001 670102 000001 6509", "00000001 670102", false, true, 0},
      {"none", VIDEO_CODEC_H264, "000001 650909", "", false, false, 0},
      {"H.265", VIDEO_CODEC_H265, "000001 4001 000001 4201 000001 4401 000001 2601",
       "00000001 4001 00000001 4201 00000001 4401", true, true, 0},
      {"H.265 without a video set", VIDEO_CODEC_H265, "000001 4201 000001 4401", "00000001 4201 00000001 4401",
       false, true, 0},
      {"VOL header and picture", VIDEO_CODEC_MPEG4, "000001 b001 000001 2007 000001 b609",
       "000001 b001 000001 2007", true, true, 0},
      {"picture alone", VIDEO_CODEC_MPEG4, "000001 b609 000001 2007", "", false, false, 0},
  };
  for (const auto& one : cases) {
    const Bytes unit = Hex(one.unit);
    const DecoderSets sets = FindDecoderSets(one.codec, unit.data(), unit.size());
    EXPECT_EQ(Hex(one.sets), sets.bytes) << one.what;
    EXPECT_EQ(one.complete, sets.complete) << one.what;
    EXPECT_EQ(one.inFront, sets.inFront) << one.what;
    EXPECT_EQ(one.insertion, sets.insertionPoint) << one.what;
    // Cut anywhere: nothing beyond the end is looked at (each prefix is a heap block of its own).
    for (size_t length = 0; length < unit.size(); ++length) {
      const Bytes prefix(unit.begin(), unit.begin() + static_cast<std::ptrdiff_t>(length));
      EXPECT_LE(FindDecoderSets(one.codec, prefix.data(), length).insertionPoint, length);
    }
  }
}

// Start codes are looked for in large steps: wherever one lies, and whatever zeros lie about, none is missed.
TEST(AnnexBTest, FindsEveryUnitOfManyBytes) {
  std::mt19937 random(1);
  for (int round = 0; round < 3000; ++round) {
    const unsigned zeros = random() % 4 == 0 ? 2 : 60;
    Bytes data(random() % 300);
    for (unsigned char& byte : data) byte = static_cast<unsigned char>(random() % zeros == 0 ? 0 : random() % 4);
    std::vector<size_t> starts;
    for (size_t at = 0; at + 3 <= data.size(); ++at) {
      if (data[at] == 0 && data[at + 1] == 0 && data[at + 2] == 1) starts.push_back(at);
    }
    std::vector<size_t> payloads;
    for (size_t n = 0; n < starts.size(); ++n) {
      const size_t end = n + 1 < starts.size() ? starts[n + 1] : data.size();
      size_t last = end;
      while (n + 1 < starts.size() && last > starts[n] + 3 && data[last - 1] == 0) --last;
      if (last > starts[n] + 3) payloads.push_back(starts[n] + 3);
    }
    std::vector<CodedUnit> units;
    FindUnits(data.data(), data.size(), &units);
    std::vector<size_t> found;
    for (const CodedUnit& unit : units) found.push_back(unit.payload);
    ASSERT_EQ(found, payloads) << round;
  }
}

}  // namespace
}  // namespace record
