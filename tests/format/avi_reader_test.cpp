#include <unistd.h>

#include <cstring>

#include "tests/format/avi_reading.h"

namespace avitest {
namespace {

std::string Config() {
  return std::string("\0\0\0\1\x67\x64\0\x1f\0\0\0\1\x68\xee\x3c\x80", 16);
}

TEST_F(AviTest, FinishedFileAnswersFromHeaderAndIndex) {
  File file;
  file.Video(true, "first");
  file.Audio("odd");
  for (int n = 1; n < 52; ++n) file.Video(n % 10 == 0, std::string(static_cast<std::size_t>(n), 'v'));
  file.Finish();
  ASSERT_EQ(Open(file.Bytes()), 1);
  EXPECT_TRUE(m_platform.Logged(
      "video frame: 52, video keyframe count: 6, audio frame: 1, framerate: 5, duration: 10 s\n\n"));
  EXPECT_EQ(m_reader.Open(m_path.c_str()), 0);
  EXPECT_TRUE(m_platform.Logged("file already open!\n\n"));
  EXPECT_EQ(m_reader.GetVideoFrameCount(), 52);
  EXPECT_EQ(m_reader.GetAudioFrameCount(), 1);
  EXPECT_EQ(m_reader.GetVideoFramerate(), 5);
  EXPECT_EQ(m_reader.GetVideoFrameInterval(), 200);
  EXPECT_EQ(m_reader.GetTimeDuration(), 10);
  EXPECT_EQ(m_reader.GetKeyFrameTimeInterval(), 1666);
  unsigned long flags = 0;
  VIDEO_PARAM video;
  AUDIO_PARAM audio;
  EXPECT_EQ(m_reader.GetMeidaParam(&flags, &video, &audio), 0);
  EXPECT_EQ(flags, 257u);
  EXPECT_STREQ(video.codec, "H264");
  EXPECT_EQ(video.width, 640u);
  EXPECT_EQ(video.framerate, 5u);
  EXPECT_EQ(video.bitrate, 800000u);
  EXPECT_EQ(video.config_length, 86u) << "no parameter set in the first frame";
  EXPECT_STREQ(audio.codec, "G711");
  EXPECT_EQ(audio.bits, 16u);
  EXPECT_EQ(audio.bitrate, 8000u * 128);
  ExpectPackets(m_reader, file.Packets(), 0, file.Packets().size());
  EXPECT_TRUE(m_platform.Logged("CAviFile meida data reach end!!!\n\n"));
  EXPECT_EQ(m_reader.GetTimeOffset(), 52 * 200);
}

TEST_F(AviTest, TheFirstFrameIsOneIntervalOldAndOnlyTheExactFlagMarksAKeyFrame) {
  File file;
  file.FillSeconds(2);
  file.Finish();
  ASSERT_EQ(Open(file.Bytes()), 1);
  EXPECT_EQ(ReadFrame(m_reader).stamp, 200u);
  EXPECT_EQ(ReadFrame(m_reader).stamp, 200u) << "audio leaves it";
  EXPECT_EQ(ReadFrame(m_reader).stamp, 400u);
  std::string bytes = file.Bytes();
  SetU32(bytes, 132, 0);
  ASSERT_EQ(Open(bytes), 1);
  EXPECT_EQ(m_reader.GetVideoFramerate(), 25);
  EXPECT_EQ(ReadFrame(m_reader).stamp, 40u);

  bytes = file.Bytes();
  SetU32(bytes, file.IndexOffset() + 8 + 4, 0x11);
  ASSERT_EQ(Open(bytes), 1);
  EXPECT_EQ(m_reader.GetKeyFrameTimeInterval(), 2000);
  ASSERT_EQ(m_reader.SeekTimeOffset(0), 0);
  EXPECT_TRUE(ReadFrame(m_reader) == file.Packets()[0]) << "no key frame yet: from the begin";
}

TEST_F(AviTest, SecondsLeadToTheirKeyFrame) {
  File file;
  // Key frames at 0, 3 and 4 s; slot k holds the last one at or before frame 5 k.
  for (int n = 0; n < 36; ++n) {
    const bool key = n == 0 || n == 15 || n == 20;
    file.Video(key, std::to_string(n) + std::string(n == 0 ? 300 : 1, 'f'));
  }
  file.Finish();
  ASSERT_EQ(Open(file.Bytes()), 1);
  ASSERT_EQ(m_reader.GetTimeDuration(), 7);
  struct Case {
    unsigned long second;
    std::size_t chunk;
    int stamp;
  };
  for (const Case& c :
       {Case{0, 0, 2000}, Case{2, 0, 2000}, Case{3, 15, 3000}, Case{4, 20, 6000}, Case{6, 20, 6000}}) {
    ASSERT_EQ(m_reader.SeekTimeOffset(c.second), 0);
    EXPECT_EQ(m_reader.GetTimeOffset(), c.stamp) << "the latest second that this key frame serves";
    EXPECT_TRUE(ReadFrame(m_reader) == file.Packets()[c.chunk]) << c.second;
  }
  EXPECT_EQ(m_reader.SeekTimeOffset(7), -1);
  EXPECT_TRUE(m_platform.Logged("CAviFile::SeekTimeOffset(): nTimeOffset=7 > m_nDuration = 7\n\n"));

  ASSERT_EQ(Open(file.Bytes()), 1);
  EXPECT_EQ(m_reader.MovePrevKeyFrame(), -2);
  for (const std::size_t chunk : {0, 15, 20}) {
    ASSERT_EQ(m_reader.MoveNextKeyFrame(), 0);
    EXPECT_TRUE(ReadFrame(m_reader) == file.Packets()[chunk]);
  }
  EXPECT_EQ(m_reader.MoveNextKeyFrame(), -1);
  ASSERT_EQ(m_reader.MovePrevKeyFrame(), 0);
  EXPECT_EQ(m_reader.GetTimeOffset(), 3000);
  EXPECT_TRUE(ReadFrame(m_reader) == file.Packets()[15]);
  ASSERT_EQ(m_reader.MovePrevKeyFrame(), 0);
  EXPECT_EQ(m_reader.GetTimeOffset(), 2000);
  EXPECT_TRUE(ReadFrame(m_reader) == file.Packets()[0]);
  ASSERT_EQ(m_reader.MovePrevKeyFrame(), 0) << "nothing before it: the begin of the data";
  EXPECT_EQ(m_reader.GetTimeOffset(), 0);
  EXPECT_TRUE(ReadFrame(m_reader) == file.Packets()[0]);
}

TEST_F(AviTest, ConfigurationComesFromTheFirstKeyFrame) {
  struct Case {
    int codec;
    std::string front;
    const char* name;
    std::uint32_t length;
  };
  std::string vol = std::string("\0\0\1\0\0\0\1\x20", 8) + std::string(10, 'v');
  for (const Case& c : {Case{VIDEO_CODEC_H264, Config(), "H264", 16}, Case{VIDEO_CODEC_H265, "", "H265", 86},
                        Case{VIDEO_CODEC_MPEG4, vol, "MP4V", 18}}) {
    File file(false, c.codec);
    file.Video(false, std::string(300, 'x'));  // its front is not the configuration's
    std::string bytes = file.Bytes();
    const std::string key = c.front + Start(c.codec, true) + std::string(300, 'k');
    bytes += "00dc";
    PutU32(bytes, static_cast<std::uint32_t>(key.size()));
    bytes += key;
    ASSERT_EQ(Open(bytes), 1);
    VIDEO_PARAM video;
    unsigned long flags = 0;
    m_reader.GetMeidaParam(&flags, &video, nullptr);
    EXPECT_EQ(flags, 1u);
    EXPECT_STREQ(video.codec, c.name);
    EXPECT_EQ(video.config_length, c.length);
    EXPECT_EQ(0, std::memcmp(video.config, key.data(), c.length));
    EXPECT_FALSE(ReadFrame(m_reader).key);
    EXPECT_TRUE(ReadFrame(m_reader).key) << "told by its bytes, behind headers, too";
  }
}

TEST_F(AviTest, KeyFramesAreToldByTheirFirstUnit) {
  const auto key = [](const std::string& unit, const char* start = "\1") {
    const std::string frame = std::string(3, '\0') + start + unit;
    return IsH264KeyFrame(reinterpret_cast<const unsigned char*>(frame.data()), static_cast<int>(frame.size()));
  };
  for (const char* unit : {"\x65vv", "\x67vv", "\x28vv", "\x41\x88v", "\x41\xf4v", "\x41\x4dv"})
    EXPECT_EQ(key(unit), 1);
  for (const char* unit : {"\x41\x9av", "\x06vv", "\x09vv", "\x65v"}) EXPECT_EQ(key(unit), 0);
  EXPECT_EQ(key("\x65vv", "\2"), 0) << "no start code";
  // In a file, delimiters and messages in front say nothing.
  File file(false);
  file.Video(true, std::string(300, 'f'));
  std::string bytes = file.Bytes();
  for (const char type : {'\x65', '\x41'}) {
    const std::string frame = std::string("\0\0\0\1\x09\x10\0\0\1\x06\x05\x01\x80\0\0\1", 16) + type + "\x9av";
    bytes += "00dc";
    PutU32(bytes, static_cast<std::uint32_t>(frame.size()));
    bytes += frame;
  }
  ASSERT_EQ(Open(bytes), 1);
  EXPECT_TRUE(ReadFrame(m_reader).key);
  EXPECT_TRUE(ReadFrame(m_reader).key);
  EXPECT_FALSE(ReadFrame(m_reader).key);
}

TEST_F(AviTest, LargeAndDamagedFramesArePassedOver) {
  File file;
  file.Video(true, std::string(512000 - 6, 'a'));
  file.Video(false, std::string(512001 - 6, 'b'));
  file.Audio("behind it");
  file.Finish();
  std::string bytes = file.Bytes();
  ASSERT_EQ(Open(bytes), 1);
  EXPECT_EQ(ReadFrame(m_reader).result, 512000);
  EXPECT_EQ(ReadFrame(m_reader).result, -3);
  EXPECT_TRUE(m_platform.Logged("CAviFile frame len = 512001 is too large!!!\n\n"));
  EXPECT_TRUE(ReadFrame(m_reader) == file.Packets()[2]);
  EXPECT_EQ(ReadFrame(m_reader).result, -2);
  const std::unique_ptr<CVideoFile> whole = CreateVideoFile(m_path.c_str());
  ASSERT_EQ(whole->Open(m_path.c_str()), 1);
  ExpectPackets(*whole, file.Packets(), 0, 3);

  SetU32(bytes, file.Packets()[2].offset, 0x41414141);
  ASSERT_EQ(Open(bytes), 1);
  ReadFrame(m_reader);
  ReadFrame(m_reader);
  EXPECT_EQ(ReadFrame(m_reader).result, 0);
  EXPECT_TRUE(m_platform.Logged("read bad flag = 0x41414141\n\n"));

  // Cut off while it is read: within the head of a frame.
  ASSERT_EQ(Open(file.Bytes()), 1);
  ASSERT_EQ(truncate(m_path.c_str(), static_cast<off_t>(file.Packets()[0].offset + 6)), 0);
  EXPECT_EQ(ReadFrame(m_reader).result, 0);
  EXPECT_TRUE(m_platform.Logged("CAviFile read len failed!!!\n\n"));
  EXPECT_EQ(ReadFrame(m_reader).result, 0);
  EXPECT_TRUE(m_platform.Logged("CAviFile read flag failed!!!\n\n"));
}

TEST_F(AviTest, WhatCannotBeReadIsRefused) {
  File file;
  file.FillSeconds(1);
  file.Finish();
  std::string three = file.Bytes();
  SetU32(three, 56, 3);
  std::string foreign = file.Bytes();
  SetU32(foreign, 9888, 100);
  SetU32(foreign, 9892, 0);
  const std::pair<std::string, const char*> cases[] = {
      {file.Bytes().substr(0, 87), "read avi file header failed. maybe bad avi file.\n\n"},
      {file.Bytes().substr(0, 9895), "read avi file av header failed. maybe bad avi file.\n\n"},
      {File(false).Bytes().substr(0, 5671), "read avi file video header failed. maybe bad avi file.\n\n"},
      {three, "avi_header.dwStreams = 3, maybe bad avi file.\n\n"},
      {File().Bytes(), "bad index flag: 69766f6d\n\n"},
      {foreign, "bad index flag: "},
  };
  for (const auto& [bytes, message] : cases) {
    EXPECT_EQ(Open(bytes), 0) << message;
    EXPECT_TRUE(m_platform.Logged(message)) << message;
    EXPECT_EQ(ReadFrame(m_reader).result, -1);
  }
  EXPECT_EQ(m_reader.Open(Path("/none.avi").c_str()), 0);
}

}  // namespace
}  // namespace avitest
