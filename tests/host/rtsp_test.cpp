// A camera behind a real RTSP server that dies and comes back.
#include <dirent.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>
#include <thread>

#include "record_host/host.h"
#include "tests/host/support/clips.h"
#include "tests/host/support/frame_collector.h"
#include "tests/host/support/servers.h"

namespace record {
namespace {

std::string CameraClip() {
  return Clip("camera.mkv", 30, "-c:v libx264 -preset ultrafast -g 12 -bf 0 -pix_fmt yuv420p -c:a pcm_mulaw");
}

int EntriesOf(const char* directory) {
  int count = 0;
  DIR* listing = opendir(directory);
  while (readdir(listing) != nullptr) ++count;
  closedir(listing);
  return count;
}

double WallMs() {
  struct timespec now;
  clock_gettime(CLOCK_REALTIME, &now);
  return static_cast<double>(now.tv_sec) * 1000.0 + static_cast<double>(now.tv_nsec) / 1e6;
}

TEST(RtspTest, CameraThatGoesAwayAndComesBack) {
  std::thread([] {}).join();  // a checker starts a thread of its own beside the first one
  const int descriptors = EntriesOf("/proc/self/fd");
  const int threads = EntriesOf("/proc/self/task");
  RtspCamera camera(CameraClip());
  ASSERT_TRUE(camera.Start());
  ASSERT_EQ(0, HostStreamOpen(0, camera.Url().c_str())) << StreamInfo(0).error;
  FrameCollector video{0, 0x77};
  FrameCollector audio{2, 0x77};
  ASSERT_TRUE(video.Register(0));
  ASSERT_TRUE(audio.Register(0));
  ASSERT_TRUE(video.WaitFor(40, 10000)) << StreamInfo(0).error;
  audio.Drain();
  EXPECT_TRUE(video.frames[0].view.keyFrame);
  EXPECT_EQ(7, video.frames[0].bytes[4] & 31) << "parameter sets in front";
  EXPECT_EQ(0, MissingFrames(video.frames));
  EXPECT_NEAR(WallMs(), video.frames.back().view.timestampMs, 5000);
  EXPECT_FALSE(audio.frames.empty());
  EXPECT_EQ(AUDIO_CODEC_G711_ULAW, StreamInfo(0).audioCodec);
  EXPECT_EQ(160, StreamInfo(0).width);

  JpegPicture picture = {};
  EXPECT_EQ(0, TakeJpegPicture(0, 0, 0, 0, &picture));
  camera.Kill();
  EXPECT_TRUE(AwaitState(0, HOST_STREAM_CONNECTING));
  EXPECT_EQ(-1, TakeJpegPicture(0, 0, 0, 0, &picture)) << "of a camera that is off";
  usleep(500000);
  video.Drain();
  const size_t before = video.frames.size();
  EXPECT_STRNE("", StreamInfo(0).error);
  const std::int64_t missingBefore = MissingFrames(video.frames);
  ASSERT_TRUE(camera.Start());
  ASSERT_TRUE(video.WaitFor(before + 40, 15000)) << StreamInfo(0).error;
  EXPECT_EQ(HOST_STREAM_LIVE, StreamInfo(0).state);
  EXPECT_EQ(0, TakeJpegPicture(0, 0, 0, 0, &picture));
  EXPECT_EQ(1, StreamInfo(0).reconnects);
  EXPECT_TRUE(video.frames[before].view.keyFrame);
  EXPECT_GT(video.frames[before].view.frameIndex, video.frames[before - 1].view.frameIndex + 1);
  EXPECT_EQ(missingBefore, MissingFrames({video.frames.begin(), video.frames.begin() + static_cast<int>(before)}));
  EXPECT_TRUE(NeverRunsBackwards(video.frames));
  EXPECT_GT(video.frames[before].view.timestampMs - video.frames[before - 1].view.timestampMs, 300)
      << "the time away shows";
  audio.Drain();
  EXPECT_GT(MissingFrames(audio.frames), 0);

  EXPECT_EQ(0, HostStreamClose(0));
  camera.Kill();
  EXPECT_EQ(descriptors, EntriesOf("/proc/self/fd"));
  // A joined thread may stand in the list a little longer.
  for (int i = 0; i < 200 && EntriesOf("/proc/self/task") != threads; ++i) usleep(10000);
  EXPECT_EQ(threads, EntriesOf("/proc/self/task"));
}

TEST(RtspTest, SilenceTimesOutAndCanBeBrokenOff) {
  const SilentServer server;
  HostStreamOptions options = {};
  options.openTimeoutMs = 400;
  unsigned long long start = GetCurrentTimeStamp_u64();
  EXPECT_EQ(-1, HostStreamOpenWith(0, server.Url().c_str(), &options));
  EXPECT_LE(GetCurrentTimeStamp_u64() - start, 8000u);
  EXPECT_NE(nullptr, strstr(StreamInfo(0).error, "no answer from")) << StreamInfo(0).error;

  start = GetCurrentTimeStamp_u64();
  std::thread opener([&server] { EXPECT_EQ(-1, HostStreamOpen(0, server.Url().c_str())); });
  EXPECT_TRUE(AwaitState(0, HOST_STREAM_CONNECTING));
  EXPECT_EQ(0, HostStreamClose(0));
  opener.join();
  EXPECT_LE(GetCurrentTimeStamp_u64() - start, 8000u) << "less than the silence it waits for";
}

TEST(RtspTest, NoReconnectAndNoSuchStream) {
  RtspCamera camera(CameraClip());
  ASSERT_TRUE(camera.Start());
  const std::string wrong = camera.Url() + "2";
  EXPECT_EQ(-1, HostStreamOpen(0, wrong.c_str()));
  EXPECT_NE(nullptr, strstr(StreamInfo(0).error, "no such stream")) << StreamInfo(0).error;
  HostStreamOptions options = {};
  options.noReconnect = 1;
  options.noAudio = 1;
  ASSERT_EQ(0, HostStreamOpenWith(0, camera.Url().c_str(), &options));
  FrameCollector audio{2, 0x77};
  EXPECT_FALSE(audio.Register(0));
  camera.Kill();
  EXPECT_TRUE(AwaitState(0, HOST_STREAM_FAILED));
  EXPECT_NE(nullptr, strstr(StreamInfo(0).error, "lost the connection")) << StreamInfo(0).error;
  EXPECT_EQ(0, HostStreamClose(0));
}

}  // namespace
}  // namespace record
