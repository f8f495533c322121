#include "tests/format/kmv_reading.h"

namespace kmvtest {
namespace {

File SteadyFile(int seconds, const Options& options = Options()) {
  File file(options);
  for (int second = 0; second < seconds; ++second) {
    const auto stamp = static_cast<std::uint32_t>(1000 + second * 1000);
    file.Video(true, stamp, "key " + std::to_string(second));
    file.Video(false, stamp + 500, "inter " + std::to_string(second));
    file.Audio(stamp + 510, "sound");
  }
  return file;
}

TEST_F(KmvTest, AFileAnswersFromItsTailOrElseByAScan) {
  File file = SteadyFile(10);
  unsigned long flags = 0;
  VIDEO_PARAM video;
  AUDIO_PARAM audio;
  for (const bool finished : {false, true}) {
    SCOPED_TRACE(finished);
    if (finished) file.Finish(10250);
    ASSERT_EQ(Open(file.Bytes()), 1);
    EXPECT_NE(m_platform.Logged("No tail found. try to scan whole file.\n\n"), finished);
    EXPECT_TRUE(m_platform.Logged(
        std::string("Got video frame = 20, audio frame = 10, key video frame = 10, ") +
        (finished ? "video framerate = 23, interval = 43.\n\n" : "video framerate = 25, interval = 40.\n\n")));
    EXPECT_EQ(m_reader.GetVideoFrameCount(), 9);  // the last indexed second
    EXPECT_EQ(m_reader.GetAudioFrameCount(), 10);
    EXPECT_EQ(m_reader.GetVideoFramerate(), finished ? 23 : 25);
    EXPECT_EQ(m_reader.GetVideoFrameInterval(), finished ? 43 : 40);
    EXPECT_EQ(m_reader.GetTimeDuration(), finished ? 10 : 9);
    EXPECT_EQ(m_reader.GetKeyFrameTimeInterval(), finished ? 1000 : 900);
    EXPECT_EQ(m_reader.GetMeidaParam(&flags, &video, &audio), 0);
    EXPECT_EQ(flags, 0x0101u);
    EXPECT_STREQ(video.codec, "H.264");
    EXPECT_EQ(video.width, 1920u);
    EXPECT_EQ(video.height, 1080u);
    EXPECT_EQ(video.framerate, finished ? 23u : 25u);
    EXPECT_EQ(video.bitrate, 4000000u);
    EXPECT_EQ(video.config[2], 3);
    EXPECT_EQ(video.config_length, 3u);
    EXPECT_STREQ(audio.codec, "G.711A");
    EXPECT_EQ(audio.samplerate, 8000u);
    EXPECT_EQ(audio.bits, 16u);
    EXPECT_EQ(audio.channels, 1u);
    EXPECT_EQ(audio.bitrate, 64000u);
    EXPECT_EQ(m_reader.SeekTimeByPercent(50), 0);
    ExpectPackets(m_reader, file.Packets(), 0, file.Packets().size());
    ASSERT_EQ(m_reader.SeekTimeOffset(4), 0);
    EXPECT_EQ(m_reader.GetTimeOffset(), 4000);
    ExpectPackets(m_reader, file.Packets(), 12, file.Packets().size());
    if (finished) continue;
    EXPECT_EQ(m_reader.MoveNextKeyFrame(), -2);
    EXPECT_TRUE(m_platform.Logged("CKmvFile::MoveNextKeyFrame() meida data reach end!!!\n\n"));
  }
}

// Long enough for the scan to try both of its ways.
TEST_F(KmvTest, LongScanMissesNothing) {
  File file;
  for (std::uint32_t n = 0; n < 300; ++n) {
    file.Video(n % 25 == 0, 1000 + n * 40, std::string(40000 + n, 'v'));
    file.Audio(1000 + n * 40, std::string(320, 'a'));
  }
  ASSERT_EQ(Open(file.Bytes()), 1);
  EXPECT_TRUE(m_platform.Logged("Got video frame = 300, audio frame = 300, key video frame = 12,"));
  EXPECT_EQ(m_reader.GetTimeDuration(), 11);
  ASSERT_EQ(m_reader.SeekTimeOffset(10), 0);
  ExpectPackets(m_reader, file.Packets(), 500, 600);
}

TEST_F(KmvTest, DamagedParametersStayWithinTheirFields) {
  std::string bytes = SteadyFile(1).Bytes();
  bytes.replace(8, 32, 32, 'x');
  SetU32(bytes, 312, 0xffffffff);
  ASSERT_EQ(Open(bytes), 1);
  unsigned long flags = 0;
  VIDEO_PARAM video;
  AUDIO_PARAM audio;
  m_reader.GetMeidaParam(&flags, &video, &audio);
  EXPECT_EQ(std::string(video.codec), std::string(31, 'x'));
  EXPECT_EQ(video.config_length, 256u);
}

TEST_F(KmvTest, OpenRefusesWhatIsNoRecord) {
  const File file = SteadyFile(1);
  EXPECT_EQ(m_reader.Open(Path("/missing.kmv").c_str()), -1);
  EXPECT_EQ(m_reader.Open(m_root.c_str()), -1);
  EXPECT_EQ(Open(file.Bytes().substr(0, 403)), -1);
  EXPECT_TRUE(m_platform.Logged("filesize 403 error.!\n\n"));
  EXPECT_EQ(Open(std::string(5000, 'x')), -1);
  EXPECT_TRUE(m_platform.Logged("ReadFileInfo error.!\n\n"));
  ASSERT_EQ(Open(file.Bytes()), 1);
  EXPECT_EQ(m_reader.Open(m_path.c_str()), -1);
  EXPECT_TRUE(m_platform.Logged("file already open!\n\n"));
  EXPECT_EQ(m_reader.Close(), 1);
  EXPECT_EQ(m_reader.Close(), 1);
}

TEST_F(KmvTest, ClosedReaderKeepsItsDefaultsAndRefuses) {
  EXPECT_EQ(m_reader.GetVideoFramerate(), 25);
  EXPECT_EQ(m_reader.GetVideoFrameInterval(), 40);
  EXPECT_EQ(m_reader.GetKeyFrameTimeInterval(), 4000);
  EXPECT_EQ(ReadFrame(m_reader).result, -1);
  EXPECT_EQ(m_reader.SeekTimeOffset(0), -1);
  EXPECT_EQ(m_reader.MoveNextKeyFrame(), -1);
  EXPECT_EQ(m_reader.MovePrevKeyFrame(), -1);
  for (const char* call : {"", "SeekTimeOffset()", "MoveNextKeyFrame()", "MovePrevKeyFrame()"})
    EXPECT_TRUE(m_platform.Logged(std::string("CKmvFile::") + call + " file not open!!!\n\n")) << call;
}

TEST_F(KmvTest, SeeksLandOnTheSecondAskedFor) {
  File file = SteadyFile(20);
  file.Finish(20000);
  ASSERT_EQ(Open(file.Bytes()), 1);
  for (const unsigned long second : {7ul, 19ul, 0ul, 7ul, 8ul}) {
    ASSERT_EQ(m_reader.SeekTimeOffset(second), 0);
    EXPECT_EQ(m_reader.GetTimeOffset(), static_cast<int>(second * 1000));
    for (std::size_t n = 0; n < 3; ++n) {
      EXPECT_TRUE(ReadFrame(m_reader) == file.Packets()[second * 3 + n]) << second;
    }
  }
  EXPECT_EQ(m_reader.SeekTimeOffset(20), -1);
  EXPECT_TRUE(m_platform.Logged("CKmvFile::SeekTimeOffset(): nTimeOffset=20 > m_nDuration = 20\n\n"));
}

TEST_F(KmvTest, SecondsWithoutAnEntryLeadToTheFirstPacketAndThoseBeyondTheIndexToItsLast) {
  File sparse = SteadyFile(5);
  sparse.Finish(30000);
  ASSERT_EQ(Open(sparse.Bytes()), 1);
  ASSERT_EQ(m_reader.SeekTimeOffset(29), 0);
  ExpectPackets(m_reader, sparse.Packets(), 0, sparse.Packets().size());
  File full = SteadyFile(1900);
  full.Finish(1900000);
  ASSERT_EQ(Open(full.Bytes()), 1);
  EXPECT_EQ(m_reader.GetVideoFrameCount(), 1799);
  ASSERT_EQ(m_reader.SeekTimeOffset(1850), 0);
  EXPECT_TRUE(ReadFrame(m_reader) == full.Packets()[1799 * 3]);
}

TEST_F(KmvTest, GapsWithoutKeyFramesRepeatTheOneBefore) {
  File file;
  file.Video(true, 1000, "a");
  file.Video(true, 1900, "second of its second");
  file.Video(true, 6000, "b");
  ASSERT_EQ(Open(file.Bytes()), 1);
  ASSERT_EQ(m_reader.SeekTimeOffset(4), 0);
  EXPECT_EQ(ReadFrame(m_reader).payload, "a");
  EXPECT_EQ(m_reader.GetVideoFrameCount(), 5);
}

TEST_F(KmvTest, AudioOnlyFileIsIndexedByItsAudio) {
  Options options;
  options.video = false;
  File file(options);
  for (std::uint32_t n = 0; n < 100; ++n) file.Audio(7000 + n * 40, "sound " + std::to_string(n));
  ASSERT_EQ(Open(file.Bytes()), 1);
  EXPECT_EQ(m_reader.GetTimeDuration(), 3);
  EXPECT_EQ(m_reader.GetVideoFrameInterval(), 40);  // a rate of 0
  ASSERT_EQ(m_reader.SeekTimeOffset(2), 0);
  ExpectPackets(m_reader, file.Packets(), 50, 100);
}

TEST_F(KmvTest, MovesGoFromKeyFrameToKeyFrame) {
  File file = SteadyFile(4);
  file.Finish(4000);
  ASSERT_EQ(Open(file.Bytes()), 1);
  ASSERT_EQ(m_reader.MoveNextKeyFrame(), 0);  // from the begin of the first, which counts as there already
  EXPECT_EQ(m_reader.GetTimeOffset(), 1000);
  EXPECT_EQ(ReadFrame(m_reader).payload, "key 1");
  ASSERT_EQ(m_reader.MoveNextKeyFrame(), 0);
  ASSERT_EQ(m_reader.MoveNextKeyFrame(), 0);
  EXPECT_EQ(m_reader.GetTimeOffset(), 3000);
  EXPECT_EQ(m_reader.MoveNextKeyFrame(), -1);
  EXPECT_EQ(ReadFrame(m_reader).payload, "key 3");
  ASSERT_EQ(m_reader.MovePrevKeyFrame(), 0);
  EXPECT_EQ(m_reader.GetTimeOffset(), 2000);
  EXPECT_EQ(ReadFrame(m_reader).payload, "key 2");
  const std::string logged =
      "MovePrevKeyFrame(): keyframe off= " + std::to_string(file.Packets()[6].offset) + ", i = 2 \n\n";
  EXPECT_TRUE(m_platform.Logged(logged));
}

TEST_F(KmvTest, MovePrevInFrontOfEverythingLeadsToTheSizeOfTheIndex) {
  File file;
  file.Video(true, 1000, "only key");
  for (std::uint32_t n = 1; n < 5; ++n) file.Video(false, 1000 + n * 1000, std::string(2000, 'v'));
  file.Video(true, 6000, "next key");
  for (const bool finished : {false, true}) {
    if (finished) file.Finish(6000);
    ASSERT_EQ(Open(file.Bytes()), 1);
    ASSERT_EQ(m_reader.SeekTimeOffset(2), 0);
    ASSERT_EQ(m_reader.MovePrevKeyFrame(), 0);
    EXPECT_EQ(m_reader.GetTimeOffset(), -1000);
    // 7212 lies within the fourth packet's payload; 0 leads to the first packet.
    EXPECT_EQ(ReadFrame(m_reader).payload == "only key", !finished);
  }
}

TEST_F(KmvTest, MovePrevHasNowhereToGoInAVeryShortFile) {
  for (const std::uint32_t duration : {500u, 1999u}) {
    File file = SteadyFile(1);
    file.Finish(duration);
    ASSERT_EQ(Open(file.Bytes()), 1);
    EXPECT_EQ(m_reader.MovePrevKeyFrame(), -1);
  }
}

TEST_F(KmvTest, ScramblingIsUndoneInVideoOnly) {
  Options options;
  options.scramble = 1;
  options.step = 4;
  options.start = 2;
  File file(options);
  file.Video(true, 1, std::string(20, '\x0f'));
  file.Audio(1, std::string(20, '\x0f'));
  file.Video(false, 2, "short");
  ASSERT_EQ(Open(file.Bytes()), 1);
  std::string expected(20, '\x0f');
  expected[8] = expected[12] = expected[16] = '\xf0';
  EXPECT_EQ(ReadFrame(m_reader).payload, expected);
  EXPECT_EQ(ReadFrame(m_reader).payload, std::string(20, '\x0f'));
  EXPECT_EQ(ReadFrame(m_reader).payload, "short");
}

// An empty one is no frame and no end.
TEST_F(KmvTest, FramesOfEverySizeComeWhole) {
  File file;
  std::uint32_t seed = 1;
  for (const std::size_t size :
       {100u, 65000u, 70000u, 300000u, 0u, 3000000u, 10u, 262144u, 65536u, 1500000u, 7u}) {
    std::string payload(size, '\0');
    for (char& byte : payload) byte = static_cast<char>((seed = seed * 1664525 + 1013904223) >> 24);
    file.Video(true, 1000, payload);
    file.Audio(1000, payload.substr(0, 160));
  }
  for (const bool finished : {false, true}) {
    if (finished) file.Finish(1000);
    ASSERT_EQ(Open(file.Bytes()), 1);
    ExpectPackets(m_reader, file.Packets(), 0, file.Packets().size());
  }
}

TEST_F(KmvTest, DamageIsPassedOverInWholeWords) {
  File file;
  for (std::uint32_t n = 0; n < 6; ++n) file.Video(true, 1000 + n, std::string(n == 3 ? 42 : 40, 'p'));
  file.Finish(2000);
  std::string bytes = file.Bytes();
  SetU32(bytes, file.Packets()[1].offset, 0);
  ASSERT_EQ(Open(bytes), 1);
  EXPECT_TRUE(ReadFrame(m_reader) == file.Packets()[0]);
  EXPECT_TRUE(ReadFrame(m_reader) == file.Packets()[2]);
  // The packets behind number 3 stand off the words counted from number 3: all are passed over.
  SetU32(bytes, file.Packets()[3].offset, 0);
  ASSERT_EQ(Open(bytes), 1);
  EXPECT_TRUE(ReadFrame(m_reader) == file.Packets()[0]);
  EXPECT_TRUE(ReadFrame(m_reader) == file.Packets()[2]);
  EXPECT_EQ(ReadFrame(m_reader).result, -1);
}

TEST_F(KmvTest, DamagedEndIsReplacedByAScan) {
  File file;
  file.FillTwoSeconds();
  file.Finish(2000);
  const std::size_t tail = file.DataEnd() + 7212;
  for (const std::uint32_t indexOffset : {0u, 403u, 0xffffffffu, static_cast<std::uint32_t>(file.DataEnd()) + 1}) {
    std::string bytes = file.Bytes();
    SetU32(bytes, tail + 8, indexOffset);
    ASSERT_EQ(Open(bytes), 1);
    EXPECT_EQ(m_reader.GetVideoFrameCount(), 1) << indexOffset;
    ExpectPackets(m_reader, file.Packets(), 0, file.Packets().size());
  }
}

TEST_F(KmvTest, IndexThatPointsBehindTheDataIsNotFollowed) {
  File file;
  file.FillTwoSeconds();
  file.Finish(2000);
  for (const std::uint32_t offset : {static_cast<std::uint32_t>(file.DataEnd()), 0xfffffff0u}) {
    std::string bytes = file.Bytes();
    SetU32(bytes, file.DataEnd() + 12 + 4, offset);
    ASSERT_EQ(Open(bytes), 1);
    EXPECT_EQ(m_reader.SeekTimeOffset(1), -1);
    EXPECT_EQ(m_reader.MoveNextKeyFrame(), -1);
    ExpectPackets(m_reader, file.Packets(), 0, file.Packets().size());
  }
}

TEST_F(KmvTest, StampsThatRunBackOrWrapKeepTheScanSane) {
  File wrapping;
  wrapping.Video(true, 0xfffffc18, "a");
  wrapping.Video(true, 1000, "2 s later");
  ASSERT_EQ(Open(wrapping.Bytes()), 1);
  EXPECT_EQ(m_reader.GetTimeDuration(), 2);
  File late;
  late.Audio(5000, "first in the file");
  late.Video(true, 4990, "but earlier");
  late.Video(true, 7000, "b");
  late.Audio(4000, "far back");
  ASSERT_EQ(Open(late.Bytes()), 1);
  EXPECT_EQ(m_reader.GetTimeDuration(), 2);
  ASSERT_EQ(m_reader.SeekTimeOffset(0), 0);
  EXPECT_EQ(ReadFrame(m_reader).payload, "but earlier");
}

TEST(VideoFileChoice, GoesByTheNameAlone) {
  for (const char* name : {"clip.kmv", "clip.KMV", "clip.kmv.bak", "x.kmv.mp4", "/a.kmv/b"}) {
    EXPECT_NE(dynamic_cast<CKmvFile*>(CreateVideoFile(name).get()), nullptr) << name;
  }
  fake::Platform::Get().Reset();
  EXPECT_EQ(CreateVideoFile("clip.Kmv"), nullptr);
  EXPECT_TRUE(fake::Platform::Get().Logged("not support clip.Kmv\n\n"));
}

}  // namespace
}  // namespace kmvtest
