// The structures in memory against the images of docs/formats.md, and the rules that stand beside them.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "format/kmv/kmv_format.h"
#include "format/measured_rate.h"
#include "tests/support/document_image.h"

namespace record {
namespace {

template <typename Structure>
std::string Bytes(const Structure& structure) {
  return std::string(reinterpret_cast<const char*>(&structure), sizeof(structure));
}

void FillMedia(KmvMediaFields& media, std::uint32_t videoRate) {
  std::strcpy(media.video.codec, "H.264");
  media.video.width = 1920;
  media.video.height = 1080;
  media.video.framerate = videoRate;
  media.video.bitrate = 4000000;
  std::memcpy(media.video.volData, "\0\0\0\1\x67", 5);
  media.video.volLength = 5;
  std::strcpy(media.audio.codec, "G.711A");
  media.audio.samplerate = 8000;
  media.audio.bits = 16;
  media.audio.channels = 1;
  media.audio.parameter = 64000;
  media.audio.framerate = 50;
}

TEST(KmvLayout, HeadMatchesItsImage) {
  KmvVideoFileHead head = {};
  head.magic = KMV_HEAD_MAGIC;
  head.headSize = kKmvHeadSize;
  head.streamFlags = RECORD_STREAM_VIDEO | RECORD_STREAM_AUDIO;
  FillMedia(head.media, 25);
  head.version = kKmvVersion;
  head.scrambleStep = kKmvScrambleStep;
  head.scrambleStart = kKmvScrambleStart;
  EXPECT_TRUE(Bytes(head) == fake::DocumentImage("kmv-head"));
}

TEST(KmvLayout, PacketHeadMatchesItsImage) {
  const KmvPacketHead packet = {KMV_PACKET_MAGIC, 5000, 5000, 1234, KMV_FRAME_KEY, KMV_MEDIA_VIDEO, 7};
  EXPECT_TRUE(Bytes(packet) == fake::DocumentImage("kmv-packet-head"));
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
  EXPECT_TRUE(Bytes(index) == fake::DocumentImage("kmv-index"));
}

TEST(KmvLayout, TailMatchesItsImage) {
  KmvVideoFileTail tail = {};
  tail.magic = KMV_TAIL_MAGIC;
  tail.duration = 4000;
  tail.indexOffset = 5000;
  tail.videoFrames = 92;
  tail.audioFrames = 200;
  tail.keyFrames = 3;
  FillMedia(tail.media, 23);
  EXPECT_TRUE(Bytes(tail) == fake::DocumentImage("kmv-tail"));
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

TEST(KmvRules, MeasuredRatesAreRoundedAndVideoIsKeptNearTheConfigured) {
  EXPECT_EQ(MeasuredVideoRate(300, 10000, 25), 25);
  EXPECT_EQ(MeasuredVideoRate(120, 10000, 25), 20);
  EXPECT_EQ(MeasuredVideoRate(225, 10000, 25), 23);
  EXPECT_EQ(MeasuredVideoRate(100, 0, 25), 25);
  EXPECT_EQ(MeasuredAudioRate(100, 0, 50), 50);
  EXPECT_EQ(MeasuredAudioRate(1495, 10000, 50), 150);
  EXPECT_EQ(MeasuredAudioRate(1LL << 40, 1, 50), 0x7fffffff);
}

}  // namespace
}  // namespace record
