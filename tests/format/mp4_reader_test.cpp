// The MP4 reader on the fake demultiplexer: parameters, results, messages, the correction of a growing file.
#include "tests/format/frame_reading.h"
#include "tests/support/device_test.h"

namespace {

using ::testing::ElementsAre;

class Mp4ReaderTest : public fake::DeviceTest {
 protected:
  Mp4ReaderTest() : m_path(Path("/mnt/mmc0/manual/20240131/081500-av-1.mp4")) {
    m_clip.video = {VIDEO_CODEC_H265, 1920, 1080, 25, 50, 3, {7, 8, 9}};
    m_clip.audio = {1, 12, 320, 8000, 2, {}};
    m_clip.extra = {10, 0};
    m_clip.frames = {{true, true, 0, "KEY"},
                     {false, false, 3, "aud"},
                     {true, false, 40, "P"},
                     {true, true, 2000, "KEY2"},
                     {true, false, 2040, ""}};
  }
  int Open() {
    fake::WriteFile(m_path, fake::Mp4Bytes(m_clip));
    return m_reader.Open(m_path.c_str());
  }
  // "media key stamp bytes", or the negative result.
  std::string Next() {
    const formattest::Frame frame = formattest::ReadFrame(m_reader, 0);
    if (frame.result < 0) return std::to_string(frame.result);
    return std::to_string(frame.video) + " " + std::to_string(frame.key) + " " + std::to_string(frame.stamp) +
           " " + frame.payload;
  }

  const std::string m_path;
  fake::Mp4Clip m_clip;
  CMp4File m_reader;
};

TEST_F(Mp4ReaderTest, TellsWhatTheDemultiplexerFound) {
  ASSERT_EQ(Open(), 1);
  unsigned long flags = 0;
  VIDEO_PARAM video;
  AUDIO_PARAM audio;
  EXPECT_EQ(m_reader.GetMeidaParam(&flags, &video, &audio), 0);
  EXPECT_EQ(flags, 257u);
  EXPECT_STREQ(video.codec, "H265");
  EXPECT_THAT((std::vector<std::uint32_t>{video.reserved, video.width, video.height, video.framerate,
                                          video.keyframe_interval, video.bitrate, video.config_length}),
              ElementsAre(0, 1920, 1080, 25, 50, 800, 3));
  EXPECT_EQ(std::string(video.config, video.config + 4), std::string("\7\10\11\0", 4));
  EXPECT_STREQ(audio.codec, "PCMA");
  EXPECT_THAT((std::vector<std::uint32_t>{audio.reserved, audio.samplerate, audio.bits, audio.channels,
                                          audio.bitrate, audio.extra}),
              ElementsAre(0, 8000, 16, 2, 64000, 8));
  EXPECT_THAT(
      (std::vector<int>{m_reader.GetVideoFrameCount(), m_reader.GetAudioFrameCount(), m_reader.GetVideoFramerate(),
                        m_reader.GetVideoFrameInterval(), m_reader.GetTimeDuration(),
                        m_reader.GetKeyFrameTimeInterval(), m_reader.GetTimeOffset()}),
      ElementsAre(1000, 1000, 25, 50, 10, 2000, 0));

  // Another file with the same reader; what a hostile one says is cut to what there is room for.
  m_clip.video = {7, -1, 0, 0, -3, 999, {}};
  m_clip.audio.enabled = 0;
  ASSERT_EQ(Open(), 1);
  m_reader.GetMeidaParam(&flags, &video, &audio);
  EXPECT_EQ(flags, 1u);
  EXPECT_STREQ(video.codec, "H264");
  EXPECT_EQ(video.config_length, 128u);
  EXPECT_EQ(audio.samplerate, 0u);
  EXPECT_EQ(m_reader.GetKeyFrameTimeInterval(), 4000);
  for (const auto& [code, name] : {std::pair(10, "MPEG4-GENERIC"), std::pair(11, "PCMU")}) {
    m_clip.audio = {1, code, 1024, 48000, 2, {}};
    ASSERT_EQ(Open(), 1);
    m_reader.GetMeidaParam(&flags, &video, &audio);
    EXPECT_STREQ(audio.codec, name);
  }
}

TEST_F(Mp4ReaderTest, FramesComeInOrderAndSeeksAreHandedOn) {
  EXPECT_EQ(Next(), "-1") << "nothing is open";
  EXPECT_EQ(m_reader.SeekTimeOffset(1) + m_reader.SeekTimeByPercent(1) + m_reader.MoveNextKeyFrame(), 0);
  ASSERT_EQ(Open(), 1);
  m_platform.ClearRecord();
  for (const char* frame : {"1 1 0 KEY", "0 0 3 aud", "1 0 40 P", "1 1 2000 KEY2", "1 0 2040 ", "-1"})
    EXPECT_EQ(Next(), frame);
  EXPECT_TRUE(m_platform.Logged("]Emp4DemuxerReadFrame err code:-7\n"));
  EXPECT_EQ(m_reader.SeekTimeOffset(1), 0);
  EXPECT_EQ(Next(), "1 1 0 KEY");
  EXPECT_EQ(m_reader.MoveNextKeyFrame(), 0);
  EXPECT_EQ(m_reader.MovePrevKeyFrame(), 0);
  EXPECT_EQ(Next(), "1 1 2000 KEY2");
  m_mp4.plan.seekResult = -5;
  EXPECT_EQ(m_reader.SeekTimeOffset(5000000), -1) << "no seek may wrap to the begin";
  EXPECT_EQ(m_reader.SeekTimeByPercent(50), -1);
  EXPECT_EQ(m_platform.CountLogged("]Seek fail, err code:-5\n"), 2);
  EXPECT_EQ(m_reader.Close(), 0);
  EXPECT_EQ(m_reader.Close(), 0);
  EXPECT_THAT(m_platform.Calls(),
              ElementsAre("Emp4DemuxerSeek(1000)", "Emp4DemuxerSeekToNextKey()", "Emp4DemuxerSeek(4294967295)",
                          "Emp4DemuxerSeekByPercent(50)", "Emp4DemuxerClose()"));
}

TEST_F(Mp4ReaderTest, AGrowingFileIsAsLongAsItsRecordingRuns) {
  m_clip.audio.enabled = 0;
  fake::WriteFile(Path("/tmp/20240131081500-av-1.mp4"), "");
  m_clock.StepWall(90000);
  ASSERT_EQ(Open(), 1);
  EXPECT_EQ(m_reader.GetTimeDuration(), 90);
  EXPECT_EQ(m_reader.GetVideoFramerate(), 3);
  unsigned long flags = 0;
  VIDEO_PARAM video;
  AUDIO_PARAM audio;
  m_reader.GetMeidaParam(&flags, &video, &audio);
  EXPECT_EQ(video.framerate, 3u);
  EXPECT_THAT(m_platform.CallsTo("zq_mktime"), ElementsAre("zq_mktime(8:15:0, 720)", "zq_mktime(8:16:30, 720)"));
  EXPECT_TRUE(m_platform.Logged("]from 2024-01-31 08:15:00 "));
  EXPECT_TRUE(m_platform.Logged("]end 2024-01-31 08:16:30 "));
  EXPECT_TRUE(m_platform.Logged(", diff=90\n"));
  EXPECT_FALSE(m_platform.Logged(", diff=90\n\n"));
  EXPECT_TRUE(m_platform.Logged("]Now is recording: " + m_path +
                                ", ajust MP4 duration_in_sec 10->90, framerate 25->3\n\n"));

  m_clock.Reset(2024, 2, 1, 0, 0, 5);  // begun yesterday: its date is taken to be today's
  ASSERT_EQ(Open(), 1);
  EXPECT_EQ(m_reader.GetTimeDuration(), 1);
  EXPECT_EQ(m_reader.GetVideoFramerate(), 241);
}

TEST_F(Mp4ReaderTest, WhatIsNoMp4DoesNotOpen) {
  fake::WriteFile(m_path, "KMV");
  EXPECT_EQ(m_reader.Open(m_path.c_str()), 0);
  EXPECT_EQ(m_reader.Open(nullptr), 0);
  EXPECT_EQ(m_platform.CountLogged("]Demux open fail..\n\n"), 1);
  EXPECT_EQ(Next(), "-1");
  EXPECT_NE(dynamic_cast<CMp4File*>(CreateVideoFile("/A/CLIP.MP4").get()), nullptr);
  EXPECT_NE(dynamic_cast<CMp4File*>(CreateVideoFile("/a/clip.mp4").get()), nullptr);
}

}  // namespace
