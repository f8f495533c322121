#include "platform/host/timeline.h"

#include <gtest/gtest.h>

namespace record {
namespace {

constexpr double kNow = 1.7e12;
constexpr auto kVideo = Timeline::kVideo;
constexpr auto kAudio = Timeline::kAudio;

TEST(TimelineTest, PictureAndSoundShareTheirOrigin) {
  Timeline timeline(false, 0);
  EXPECT_EQ(kNow, timeline.Place(kVideo, 5000, 40, kNow).ms);
  EXPECT_EQ(kNow + 100, timeline.Place(kAudio, 5100, 20, kNow + 3).ms);
  EXPECT_EQ(kNow + 40, timeline.Place(kVideo, 5040, 40, kNow + 9).ms);
  EXPECT_EQ(kNow + 80, timeline.Place(kVideo, {}, 40, kNow).ms) << "no time: behind its predecessor";
  EXPECT_EQ(kNow + 80, timeline.Place(kVideo, 5060, 40, kNow).ms) << "a little back is held up";
}

TEST(TimelineTest, JumpsAreBridgedAndTold) {
  for (const double jump : {-5000.0, 20000.0, 4e9}) {
    Timeline timeline(false, 0);
    timeline.Place(kVideo, 10000, 40, kNow);
    timeline.Place(kAudio, 10000, 20, kNow);
    const Timeline::Stamp video = timeline.Place(kVideo, 10040 + jump, 40, kNow);
    EXPECT_TRUE(video.jumped);
    EXPECT_NEAR(kNow + 40, video.ms, 1e-3);
    // Sound that has not jumped yet goes on as before; when it does, it is in step with the picture again.
    const Timeline::Stamp before = timeline.Place(kAudio, 10020, 20, kNow);
    EXPECT_FALSE(before.jumped);
    EXPECT_NEAR(kNow + 20, before.ms, 1e-3);
    const Timeline::Stamp after = timeline.Place(kAudio, 10060 + jump, 20, kNow);
    EXPECT_TRUE(after.jumped);
    EXPECT_NEAR(kNow + 60, after.ms, 1e-3);
  }
}

TEST(TimelineTest, LoopGoesOnBehindTheLongerTrack) {
  Timeline timeline(false, 0);
  timeline.Place(kVideo, 0, 40, kNow);
  timeline.Place(kVideo, 40, 40, kNow);
  timeline.Place(kAudio, 80, 20, kNow);
  timeline.Restart();
  EXPECT_EQ(kNow + 100, timeline.Place(kVideo, 0, 40, kNow + 5000).ms)
      << "not the wall clock: a file has its pace";
  EXPECT_EQ(kNow + 120, timeline.Place(kAudio, 20, 20, kNow + 5000).ms);
}

TEST(TimelineTest, LiveSourceFollowsTheWallClock) {
  Timeline timeline(true, 0);
  timeline.SetAnchor(kNow - 2000);
  EXPECT_EQ(kNow - 2000, timeline.Place(kVideo, 0, 40, kNow).ms) << "what waited is as old as it is";
  // A camera's clock that runs 0.1 % slow for an hour would be 3.6 s behind.
  double wall = kNow - 2000;
  double last = 0;
  for (int i = 1; i < 90000; ++i) {
    wall += 40;
    const double ms = timeline.Place(kVideo, i * 40 * 0.999, 40, wall).ms;
    ASSERT_GT(ms, last);
    last = ms;
  }
  EXPECT_NEAR(wall, last, 250);
  // The wall clock is set ahead, then back: the stamps follow at once, or wait without running backwards.
  wall += 3600000;
  timeline.Place(kVideo, 90000 * 40 * 0.999, 40, wall);
  const double ahead = timeline.Place(kVideo, 90001 * 40 * 0.999, 40, wall + 40).ms;
  EXPECT_NEAR(wall + 40, ahead, 300);
  EXPECT_GT(timeline.Place(kVideo, 90002 * 40 * 0.999, 40, wall - 7200000).ms, ahead);
  // A new connection begins at the clock, but never in what is past.
  timeline.Restart();
  EXPECT_GT(timeline.Place(kVideo, 7, 40, wall - 7200000).ms, ahead);
}

TEST(TimelineTest, FirstPacketsWithoutATime) {
  Timeline timeline(true, 0);
  timeline.SetAnchor(kNow);
  EXPECT_EQ(kNow, timeline.Place(kVideo, {}, 40, kNow + 500).ms);
  EXPECT_EQ(kNow + 40, timeline.Place(kVideo, 90000, 40, kNow + 500).ms);
  timeline.Restart();
  timeline.SetAnchor(kNow + 9000);
  EXPECT_EQ(kNow + 9000, timeline.Place(kVideo, {}, 40, kNow + 9500).ms) << "after a new connection too";

  Timeline raw(false, kNow + 100);
  EXPECT_EQ(kNow + 100, raw.Place(kVideo, {}, 40, kNow).ms) << "not before what the stream has seen";
  EXPECT_EQ(kNow + 140, raw.Place(kVideo, {}, 40, kNow).ms);
}

}  // namespace
}  // namespace record
