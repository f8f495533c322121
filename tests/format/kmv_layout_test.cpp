// The structures in memory against the images of docs/formats.md, and the rules that stand beside them.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "format/kmv/kmv_format.h"
#include "format/measured_rate.h"
#include "tests/format/kmv_bytes.h"
#include "tests/support/document_image.h"

namespace record {
namespace {

// The images against files that are made from numbers, to which the writer's, the reader's and the repair's are
// held.
TEST(KmvLayout, HeadPacketAndTailMatchTheirImages) {
  kmvtest::Options options;
  options.vol = std::string("\0\0\0\1\x67", 5);
  kmvtest::File file(options);
  EXPECT_TRUE(file.Bytes() == fake::DocumentImage("kmv-head"));
  for (int n = 0; n < 7; ++n) file.Video(false, 4000, "");
  file.Video(true, 5000, std::string(1234, 'p'));
  EXPECT_TRUE(file.Bytes().substr(file.Packets()[7].offset, 24) == fake::DocumentImage("kmv-packet-head"));
  file.Finish(4000);
  std::string tail = file.Bytes().substr(file.DataEnd() + 7212);
  kmvtest::SetU32(tail, 8, 5000);
  kmvtest::SetU32(tail, 12, 92);
  kmvtest::SetU32(tail, 16, 200);
  kmvtest::SetU32(tail, 20, 3);
  kmvtest::SetU32(tail, 380, 50);
  EXPECT_TRUE(tail == fake::DocumentImage("kmv-tail"));
}

TEST(KmvLayout, IndexMadeByItsRuleMatchesItsImage) {
  KmvVideoIndex index = {};
  index.magic = KMV_INDEX_MAGIC;
  index.indexSize = kKmvIndexSize;
  KmvIndexUpdate(index, 404, 0);
  KmvIndexUpdate(index, 1000, 1);
  KmvIndexUpdate(index, 2000, 1);
  KmvIndexUpdate(index, 3000, 3);
  KmvIndexUpdate(index, 4000, 1800);
  KmvIndexUpdate(index, 4000, -1);
  const std::string bytes(reinterpret_cast<const char*>(&index), sizeof index);
  EXPECT_TRUE(bytes == fake::DocumentImage("kmv-index"));
}

TEST(KmvRules, ScramblingSurvivesHostileSettings) {
  std::uint8_t data[8] = {};
  KmvInvertBytes(data, sizeof(data), 0xffffffff, 0xffffffff);
  KmvInvertBytes(data, sizeof(data), 0, 1);
  KmvInvertBytes(data, sizeof(data), 0x80000000, 2);  // 2^32: not 0 again
  for (const std::uint8_t byte : data) EXPECT_EQ(byte, 0);
  KmvInvertBytes(data, sizeof(data), 3, 0);
  EXPECT_EQ(0, std::memcmp(data, "\xff\0\0\xff\0\0\xff\0", 8));
}

TEST(KmvRules, CodecNamesGoBothWays) {
  char field[32] = {};
  for (int type = 0; type < 3; ++type) {
    std::snprintf(field, sizeof(field), "%s", KmvVideoCodecName(type));
    EXPECT_EQ(KmvVideoCodecType(field), type);
  }
  for (int type = 0; type < 4; ++type) {
    std::snprintf(field, sizeof(field), "%s", KmvAudioCodecName(type));
    EXPECT_EQ(KmvAudioCodecType(field), type);
  }
  EXPECT_STREQ(KmvVideoCodecName(9), "H.264");
  EXPECT_STREQ(KmvAudioCodecName(-1), "");
  std::memset(field, 'G', sizeof(field));
  EXPECT_EQ(KmvAudioCodecType(field), -1);
}

TEST(KmvRules, MeasuredAudioRatesAreRoundedAndFitTheirField) {
  EXPECT_EQ(MeasuredAudioRate(100, 0, 50), 50);
  EXPECT_EQ(MeasuredAudioRate(1495, 10000, 50), 150);
  EXPECT_EQ(MeasuredAudioRate(1LL << 40, 1, 50), 0x7fffffff);
}

}  // namespace
}  // namespace record
