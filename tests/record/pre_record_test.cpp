#include "record/pre_record.h"

#include <algorithm>
#include <chrono>
#include <thread>

#include "record/pre_record_drain.h"
#include "tests/support/device_test.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr int kRingBytes = 1 << 20;

struct Kept {
  int type;
  std::int64_t frame;
  double timestampMs;
  std::string data;
};

class PreRecordTest : public fake::DeviceTest {
 protected:
  PreRecordTest() {
    for (const int stream : {STREAM_MAIN, STREAM_SUB, STREAM_AUDIO}) {
      fake::StreamPlan& plan = m_streams.Plan(stream);
      plan.video = stream != STREAM_AUDIO;
      plan.framesPerSecond = plan.video ? 25 : 20;
      plan.startMs = static_cast<double>(m_clock.WallMs());
    }
  }
  ~PreRecordTest() override {
    Release();
    EXPECT_EQ(m_streams.ReaderCount(), 0);
  }

  void Start(bool audio) {
    ASSERT_TRUE(m_clock.StartThread([=] { return PreRecInit(audio ? 1 : 0, kRingBytes, kRingBytes) == 0; }));
    m_clock.Sleep(5);  // from here on between two passes of the thread
  }
  void Release() {
    const fake::Clock::Pause pause;  // it joins its thread
    EXPECT_EQ(PreRecRelease(), 0);
  }
  static std::vector<Kept> TakeAll(int stream) {
    std::vector<Kept> frames;
    int length = -1;
    RingFrameInfo info = {};
    while (const unsigned char* data = PreRecGetFrame(stream, &length, &info))
      frames.push_back({info.type, info.frameIndex, info.timestampMs,
                        std::string(reinterpret_cast<const char*>(data), static_cast<size_t>(length))});
    EXPECT_EQ(length, 0);
    return frames;
  }
  // Frames without a gap, each in its stream's bytes, with its type.
  void ExpectWhole(const std::vector<Kept>& frames, int stream, bool audio) {
    std::int64_t next[2] = {0, 0};
    for (const Kept& frame : frames) {
      const bool isAudio = frame.type == RING_FRAME_AUDIO;
      const int from = isAudio ? STREAM_AUDIO : stream;
      fake::StreamPlan& plan = m_streams.Plan(from);
      ASSERT_EQ(frame.frame, next[isAudio]++);
      ASSERT_EQ(frame.data, fake::Streams::Payload(from, frame.frame, plan.frameBytes));
      ASSERT_EQ(frame.timestampMs, fake::Streams::Stamp(plan, frame.frame));
      const bool isKey = fake::Streams::IsKey(plan, frame.frame);
      ASSERT_EQ(frame.type, isAudio ? RING_FRAME_AUDIO : isKey ? RING_FRAME_KEY : RING_FRAME_VIDEO);
    }
    EXPECT_NEAR(static_cast<double>(next[0]), 75, 2);
    EXPECT_NEAR(static_cast<double>(next[1]), audio ? 60 : 0, audio ? 2 : 0);
  }
};

TEST_F(PreRecordTest, KeepsBothStreamsWithTheAudioInBoth) {
  Start(true);
  EXPECT_EQ(PreRecGetStatus(), 1);
  EXPECT_EQ(PreRecInit(1, kRingBytes, kRingBytes), -1);  // there is one buffer
  m_clock.Sleep(3000);
  ExpectWhole(TakeAll(STREAM_MAIN), STREAM_MAIN, true);
  ExpectWhole(TakeAll(7), STREAM_SUB, true);  // any other number is the sub stream
  EXPECT_THAT(TakeAll(STREAM_SUB), IsEmpty());
  EXPECT_EQ(m_streams.Plan(STREAM_MAIN).forcedKeys, 1);
  EXPECT_EQ(m_streams.Plan(STREAM_SUB).forcedKeys, 1);
  EXPECT_TRUE(m_platform.Logged("]audioEnable=1, mainStreamSize=1048576, subStreamSize=1048576\n\n"));
  EXPECT_TRUE(m_platform.Logged("]create pre_record_thread success\n\n"));
  Release();
  EXPECT_THAT(m_platform.Calls(), ElementsAre("SetForceIdr(0)", "SetForceIdr(1)", "GetStreamData(2, 0)",
                                              "GetStreamData(2, 1)", "GetStreamData(2, 2)", "GetStreamData(3, 0)",
                                              "GetStreamData(3, 1)", "GetStreamData(3, 2)"));
}

TEST_F(PreRecordTest, WithoutAudioNoRingHoldsAny) {
  Start(false);
  m_clock.Sleep(3000);
  for (const int stream : {STREAM_MAIN, STREAM_SUB}) ExpectWhole(TakeAll(stream), stream, false);
}

TEST_F(PreRecordTest, GivesNothingWhileItDoesNotRun) {
  const auto expectNothing = [] {
    int length = 5;
    RingFrameInfo info = {};
    EXPECT_EQ(PreRecGetStatus(), 0);
    EXPECT_EQ(PreRecGetFrame(STREAM_MAIN, &length, &info), nullptr);
    EXPECT_EQ(length, 0);
    EXPECT_EQ(PreRecDelExpiredFrame(STREAM_SUB, 10), 0);
  };
  expectNothing();
  Release();
  Start(true);
  m_clock.Sleep(1000);
  Release();
  expectNothing();
  Start(false);  // and begins anew
  m_clock.Sleep(100);
  EXPECT_THAT(TakeAll(STREAM_MAIN), ::testing::Not(IsEmpty()));
}

TEST_F(PreRecordTest, ARingThatCannotBeHadIsTold) {
  EXPECT_EQ(PreRecInit(1, 0, kRingBytes), -1);
  EXPECT_TRUE(m_platform.Logged("]init main ring buffer fail\n\n"));
  EXPECT_EQ(PreRecInit(1, kRingBytes, 0), -1);
  EXPECT_TRUE(m_platform.Logged("]init sub ring bufffer fail\n\n"));
  EXPECT_EQ(PreRecGetStatus(), 0);
  EXPECT_THAT(m_platform.Calls(), IsEmpty());
}

TEST_F(PreRecordTest, ExpiredFramesGoUpToTheFirstVideoInsideTheWindow) {
  Start(true);
  m_clock.Sleep(20000);
  EXPECT_EQ(PreRecDelExpiredFrame(STREAM_MAIN, 10), 0);
  const std::vector<Kept> frames = TakeAll(STREAM_MAIN);
  ASSERT_THAT(frames, ::testing::Not(IsEmpty()));
  EXPECT_NE(frames.front().type, RING_FRAME_AUDIO);
  double newest = 0;
  for (const Kept& frame : frames) {
    if (frame.type != RING_FRAME_AUDIO) newest = std::max(newest, frame.timestampMs);
  }
  EXPECT_EQ(frames.front().timestampMs, newest - 10000);  // exactly the window's age still counts
  EXPECT_FALSE(m_platform.Logged("]no frame data\n\n"));

  EXPECT_EQ(PreRecDelExpiredFrame(STREAM_MAIN, 10), 0);
  EXPECT_TRUE(m_platform.Logged("]no frame data\n\n"));
  EXPECT_GT(TakeAll(STREAM_SUB).size(), 800u);  // the other ring was left alone
}

TEST_F(PreRecordTest, AudioThatIsRefusedIsGivenUpAfterAHundredAttempts) {
  m_streams.Plan(STREAM_AUDIO).registrationsToRefuse = 1000;
  Start(true);
  m_clock.Sleep(9500);
  EXPECT_FALSE(m_platform.Logged("continue"));
  m_clock.Sleep(1500);
  EXPECT_EQ(m_platform.CountLogged("]register audio reader failed!\n\n"), 100);
  EXPECT_EQ(m_platform.CountLogged("]register audio reader failed!, continue\n\n"), 1);
  EXPECT_EQ(m_platform.CountLogged("]unregister reader for audio\n\n"), 1);
  EXPECT_EQ(m_platform.CallsTo("GetStreamData").size(), 2u + 100 + 1);
  m_clock.Sleep(4000);
  const std::vector<Kept> frames = TakeAll(STREAM_MAIN);
  EXPECT_GT(frames.size(), 90u);
  EXPECT_TRUE(std::all_of(frames.begin(), frames.end(), [](const Kept& f) { return f.type != RING_FRAME_AUDIO; }));
}

TEST_F(PreRecordTest, VideoIsRetriedUntilItIsThere) {
  m_streams.Plan(STREAM_MAIN).registrationsToRefuse = 3;
  m_streams.Plan(STREAM_SUB).registrationsToRefuse = 1000;
  Start(false);
  m_clock.Sleep(12000);
  EXPECT_EQ(m_platform.CountLogged("]register video reader for main failed!\n\n"), 3);
  EXPECT_EQ(m_platform.CountLogged("]register video reader for sub failed!\n\n"), 100);
  EXPECT_THAT(TakeAll(STREAM_MAIN), ::testing::Not(IsEmpty()));
  EXPECT_THAT(TakeAll(STREAM_SUB), IsEmpty());
}

TEST_F(PreRecordTest, AReleaseEndsTheAttemptsToRegister) {
  m_streams.Plan(STREAM_MAIN).registrationsToRefuse = 1000;
  m_streams.Plan(STREAM_AUDIO).registrationsToRefuse = 1000;
  Start(true);
  m_clock.Sleep(250);
  std::thread releasing([] { EXPECT_EQ(PreRecRelease(), 0); });
  // Fake time stands still until the release has told the thread to stop.
  std::this_thread::sleep_for(std::chrono::milliseconds(100));
  const fake::Clock::Pause pause;
  releasing.join();
  EXPECT_LT(m_platform.CallsTo("GetStreamData").size(), 6u);
}

TEST_F(PreRecordTest, ReadErrorsArePassedOver) {
  m_streams.Plan(STREAM_MAIN).readsToFail = {2, 5};
  m_streams.Plan(STREAM_AUDIO).readsToFail = {3};
  Start(true);
  m_clock.Sleep(3000);
  ExpectWhole(TakeAll(STREAM_MAIN), STREAM_MAIN, true);
  EXPECT_EQ(m_platform.CountLogged("]read video frame failed!\n\n"), 2);
  EXPECT_EQ(m_platform.CountLogged("]read audio frame failed!\n\n"), 1);
}

TEST_F(PreRecordTest, ADrainHasItsRingAlone) {
  Start(false);
  m_clock.Sleep(1000);
  int length = 0;
  RingFrameInfo info = {};
  {
    record::PreRecordDrain drain(STREAM_MAIN);
    std::thread([] {
      int otherLength = 5;
      RingFrameInfo otherInfo = {};
      record::PreRecordDrain other(STREAM_MAIN);
      other.DropExpiredFrames(0);
      EXPECT_EQ(other.Next(&otherLength, &otherInfo), nullptr);
      EXPECT_EQ(otherLength, 0);
      record::PreRecordDrain sub(STREAM_SUB);
      EXPECT_NE(sub.Next(&otherLength, &otherInfo), nullptr);
    }).join();
    EXPECT_NE(drain.Next(&length, &info), nullptr);
    EXPECT_EQ(info.frameIndex, 0);
  }
  record::PreRecordDrain drain(STREAM_MAIN);
  EXPECT_NE(drain.Next(&length, &info), nullptr);
  EXPECT_EQ(info.frameIndex, 1);
}

// The frame lies in the ring: a release waits until the reader is through with it.
TEST_F(PreRecordTest, AReleaseWaitsForTheReaderInside) {
  Start(false);
  m_clock.Sleep(1000);
  std::thread releasing;
  {
    record::PreRecordDrain drain(STREAM_MAIN);
    int length = 0;
    RingFrameInfo info = {};
    const unsigned char* frame = drain.Next(&length, &info);
    ASSERT_NE(frame, nullptr);
    releasing = std::thread([] { EXPECT_EQ(PreRecRelease(), 0); });
    const fake::Clock::Pause pause;
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(frame), static_cast<size_t>(length)),
              fake::Streams::Payload(STREAM_MAIN, 0, 120));
    EXPECT_EQ(PreRecGetStatus(), 1);
    EXPECT_EQ(drain.Next(&length, &info), nullptr);  // it is stopping
  }
  releasing.join();
  EXPECT_EQ(PreRecGetStatus(), 0);
}

}  // namespace
