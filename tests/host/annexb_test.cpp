#include "platform/host/annexb.h"

#include <gtest/gtest.h>

#include <random>

namespace record {
namespace {

TEST(AnnexBTest, FindsWhatADecoderNeeds) {
  const Bytes sps = {0, 0, 0, 1, 0x67, 1, 2};
  const Bytes pps = {0, 0, 0, 1, 0x68, 3};
  const Bytes both = {0, 0, 0, 1, 0x67, 1, 2, 0, 0, 0, 1, 0x68, 3};
  const struct {
    const char* what;
    VideoCodec codec;
    Bytes unit;
    Bytes sets;
    bool complete;
    bool inFront;
    size_t insertion;
  } cases[] = {
      {"short start codes, trailing zeros",
       VIDEO_CODEC_H264,
       {0, 0, 1, 0x67, 1, 2, 0, 0, 0, 0, 1, 0x68, 3, 0, 0, 1, 0x65, 9, 0},
       both,
       true,
       true,
       0},
      {"behind a delimiter",
       VIDEO_CODEC_H264,
       {0, 0, 0, 1, 9, 0xf0, 0, 0, 0, 1, 0x67, 1, 2, 0, 0, 1, 0x68, 3, 0, 0, 1, 0x65, 9},
       both,
       true,
       true,
       6},
      {"behind another unit",
       VIDEO_CODEC_H264,
       {0, 0, 1, 6, 5, 0, 0, 1, 0x67, 1, 2, 0, 0, 1, 0x68, 3, 0, 0, 1, 0x65, 9},
       both,
       true,
       false,
       0},
      {"one of the two", VIDEO_CODEC_H264, {0, 0, 1, 0x67, 1, 2, 0, 0, 1, 0x65, 9}, sps, false, true, 0},
      {"none", VIDEO_CODEC_H264, {0, 0, 1, 0x65, 9, 9}, {}, false, false, 0},
      {"H.265",
       VIDEO_CODEC_H265,
       {0, 0, 1, 0x40, 1, 0, 0, 1, 0x42, 1, 0, 0, 1, 0x44, 1, 0, 0, 1, 0x26, 1},
       {0, 0, 0, 1, 0x40, 1, 0, 0, 0, 1, 0x42, 1, 0, 0, 0, 1, 0x44, 1},
       true,
       true,
       0},
      {"H.265 without a video set",
       VIDEO_CODEC_H265,
       {0, 0, 1, 0x42, 1, 0, 0, 1, 0x44, 1},
       {0, 0, 0, 1, 0x42, 1, 0, 0, 0, 1, 0x44, 1},
       false,
       true,
       0},
      {"VOL header and picture",
       VIDEO_CODEC_MPEG4,
       {0, 0, 1, 0xb0, 1, 0, 0, 1, 0x20, 7, 0, 0, 1, 0xb6, 9},
       {0, 0, 1, 0xb0, 1, 0, 0, 1, 0x20, 7},
       true,
       true,
       0},
      {"picture alone", VIDEO_CODEC_MPEG4, {0, 0, 1, 0xb6, 9, 0, 0, 1, 0x20, 7}, {}, false, false, 0},
  };
  for (const auto& one : cases) {
    const DecoderSets sets = FindDecoderSets(one.codec, one.unit.data(), one.unit.size());
    EXPECT_EQ(one.sets, sets.bytes) << one.what;
    EXPECT_EQ(one.complete, sets.complete) << one.what;
    EXPECT_EQ(one.inFront, sets.inFront) << one.what;
    EXPECT_EQ(one.insertion, sets.insertionPoint) << one.what;
    // Cut anywhere: nothing beyond the end is looked at (each prefix is a heap block of its own).
    for (size_t length = 0; length < one.unit.size(); ++length) {
      const Bytes prefix(one.unit.begin(), one.unit.begin() + static_cast<std::ptrdiff_t>(length));
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
