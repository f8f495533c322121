#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <thread>
#include <vector>

#include "record_host/host.h"
#include "tests/host/support/frame_collector.h"

namespace record {
namespace {

constexpr int kStream = 1;
constexpr std::uintptr_t kHubReader = 42;
constexpr double kStart = 1.7e12;
constexpr int kGroup = 10;  // frames, of 40 ms each

class StreamHubTest : public testing::Test {
 protected:
  StreamHubTest() {
    const unsigned char config[] = {0, 0, 0, 1, 0x67};
    HostStreamSetConfig(kStream, config, sizeof(config));
  }
  ~StreamHubTest() override {
    for (std::uintptr_t id = 1; id < 64; ++id) GetStreamData(STREAM_UNREGISTER, kStream, id, nullptr);
    HostStreamClear(kStream);
    HostStreamClear(STREAM_AUDIO);
    HostStreamSetLookBack(kStream, 16, 32 << 20);  // the streams are the whole program's
  }

  // Frame n of the stream: its number is in its bytes.
  int Publish(int stream, int n, int size = 100, int lost = 0) {
    std::vector<unsigned char> bytes(static_cast<size_t>(size), 0);
    memcpy(bytes.data(), &n, sizeof(n));
    return HostStreamPublish(stream, bytes.data(), size, n % kGroup == 0, kStart + n * 40.0, lost);
  }
  void PublishMany(int first, int count, int size = 100) {
    for (int n = first; n < first + count; ++n) ASSERT_EQ(1, Publish(kStream, n, size)) << n;
  }
  // The n of the next frame; -1 when there is none.
  static int Next(StreamFrame* frame, std::uintptr_t reader = kHubReader) {
    if (GetStreamData(STREAM_READ, kStream, reader, frame) <= 0) return -1;
    int n = 0;
    memcpy(&n, frame->data, sizeof(n));
    return n;
  }
  static double Register(double lookBackMs, std::uintptr_t reader = kHubReader) {
    EXPECT_EQ(0, GetStreamData(STREAM_REGISTER, kStream, reader, &lookBackMs));
    return lookBackMs;
  }
  StreamFrame frame;
};

TEST_F(StreamHubTest, LookBackBeginsAtAKeyFrameThatIsOldEnough) {
  PublishMany(0, 35);  // newest at 34 * 40
  struct {
    double wanted;
    int first;
  } const cases[] = {{0, 30}, {160, 30}, {161, 20}, {1000, 0}, {960, 10}, {1e9, 0}, {-5, 30}};
  for (const auto& one : cases) {
    EXPECT_EQ((34 - one.first) * 40.0, Register(one.wanted)) << one.wanted;
    EXPECT_EQ(one.first, Next(&frame)) << one.wanted;
    EXPECT_TRUE(frame.keyFrame);
  }
  double lookBack = 0;
  EXPECT_GT(0, GetStreamData(STREAM_REGISTER, 4, kHubReader, &lookBack)) << "not there";
  EXPECT_GT(0, GetStreamData(STREAM_REGISTER, 99, kHubReader, &lookBack));
  EXPECT_GT(0, GetStreamData(STREAM_READ, kStream, 43, &frame)) << "not registered";
  EXPECT_GT(0, GetStreamData(99, kStream, kHubReader, &frame));
}

TEST_F(StreamHubTest, ReaderSeesEveryFrameInOrder) {
  Register(0);
  EXPECT_EQ(-1, Next(&frame));
  PublishMany(0, 25);
  std::int64_t base = 0;
  for (int n = 0; n < 25; ++n) {
    ASSERT_EQ(n, Next(&frame));
    if (n == 0) base = frame.frameIndex;
    EXPECT_EQ(base + n, frame.frameIndex);
    EXPECT_EQ(kStart + n * 40.0, frame.timestampMs);
    EXPECT_EQ(n % kGroup == 0, frame.keyFrame != 0);
    EXPECT_EQ(0, GetStreamData(STREAM_RELEASE, kStream, kHubReader, nullptr));
  }
  EXPECT_EQ(-1, Next(&frame));
}

TEST_F(StreamHubTest, KeepsNoMoreThanItsLimits) {
  HostStreamSetLookBack(kStream, 1, 32 << 20);  // 25 frames
  PublishMany(0, 100);
  EXPECT_GE(Register(1e9), 1000.0);
  EXPECT_EQ(70, Next(&frame)) << "the oldest group that reaches back a second";
  HostStreamSetLookBack(kStream, 1, 1500);  // 15 frames
  Register(1e9);
  EXPECT_EQ(90, Next(&frame));
  HostStreamSetLookBack(kStream, 16, 550);
  PublishMany(100, 8);
  Register(1e9);
  EXPECT_EQ(-1, Next(&frame)) << "the only key frame is gone";
  PublishMany(108, 4);
  EXPECT_EQ(110, Next(&frame));
}

TEST_F(StreamHubTest, SlowReaderIsMovedToAKeyFrame) {
  HostStreamSetLookBack(kStream, 1, 32 << 20);
  PublishMany(0, 5);
  Register(0);
  ASSERT_EQ(0, Next(&frame));
  const std::int64_t index = frame.frameIndex;
  const std::int64_t group = frame.keyframeIndex;
  PublishMany(5, 95);
  StreamFrame later;
  ASSERT_EQ(70, Next(&later));
  EXPECT_TRUE(later.keyFrame);
  EXPECT_EQ(index + 70, later.frameIndex);
  EXPECT_EQ(group + 7, later.keyframeIndex);
  EXPECT_EQ(71, Next(&later));
}

TEST_F(StreamHubTest, FrameAndConfigOutliveWhatTheProducerDoes) {
  PublishMany(0, 1, 5000);
  Register(0);
  ASSERT_EQ(0, Next(&frame));
  StreamFrame config;
  StreamFrame strangersConfig;
  ASSERT_EQ(0, GetStreamData(STREAM_GET_CONFIG, kStream, kHubReader, &config));
  ASSERT_EQ(0, GetStreamData(STREAM_GET_CONFIG, kStream, 50, &strangersConfig)) << "needs no registration";
  const std::vector<unsigned char> other(5, 0xee);
  HostStreamSetConfig(kStream, other.data(), 5);
  HostStreamSetLookBack(kStream, 0.1, 1000);
  PublishMany(1, 50);
  HostStreamClear(kStream);
  // Under the address checker this is a read of freed memory if either were gone.
  EXPECT_EQ(0, frame.data[4999]);
  EXPECT_EQ(0x67, config.data[4]);
  EXPECT_EQ(0x67, strangersConfig.data[4]);
  EXPECT_EQ(0, GetStreamData(STREAM_RELEASE, kStream, kHubReader, nullptr));
  EXPECT_GT(0, GetStreamData(STREAM_GET_CONFIG, kStream, kHubReader, &config)) << "not known any more";
  // A reader stays registered over a clearing and sees the gap.
  const std::int64_t index = frame.frameIndex;
  PublishMany(60, 1);
  ASSERT_EQ(60, Next(&frame));
  EXPECT_GT(frame.frameIndex, index + 51);
}

TEST_F(StreamHubTest, LossesLeaveGapsAndEndAtAKeyFrame) {
  EXPECT_EQ(0, Publish(kStream, 3)) << "video begins with a key frame";
  PublishMany(10, 3);
  Register(0);
  ASSERT_EQ(10, Next(&frame));
  const std::int64_t index = frame.frameIndex;
  EXPECT_EQ(0, Publish(kStream, 15, 100, 2));
  EXPECT_EQ(0, Publish(kStream, 16));
  EXPECT_EQ(1, Publish(kStream, 20));
  EXPECT_EQ(11, Next(&frame));
  EXPECT_EQ(12, Next(&frame));
  EXPECT_EQ(index + 2, frame.frameIndex);
  EXPECT_EQ(20, Next(&frame));
  EXPECT_EQ(index + 2 + 5, frame.frameIndex) << "two lost, two dropped";
  // Time is held up, not handed on backwards.
  const unsigned char byte = 0;
  HostStreamPublish(kStream, &byte, 1, 0, kStart, 0);
  ASSERT_LE(0, GetStreamData(STREAM_READ, kStream, kHubReader, &frame));
  EXPECT_EQ(kStart + 20 * 40.0, frame.timestampMs);
  EXPECT_EQ(-1, HostStreamPublish(kStream, nullptr, 1, 0, 0, 0));
  EXPECT_EQ(-1, HostStreamPublish(kStream, &byte, 0, 0, 0, 0));
  EXPECT_EQ(-1, HostStreamPublish(8, &byte, 1, 0, 0, 0));
}

TEST_F(StreamHubTest, AudioLooksBackByFrames) {
  HostStreamSetConfig(STREAM_AUDIO, nullptr, 0);
  const unsigned char byte = 0;
  for (int n = 0; n < 100; ++n) HostStreamPublish(STREAM_AUDIO, &byte, 1, 0, kStart + n * 20.0, 0);
  double lookBack = 505;
  ASSERT_EQ(0, GetStreamData(STREAM_REGISTER, STREAM_AUDIO, kHubReader, &lookBack));
  EXPECT_EQ(520, lookBack);
  ASSERT_EQ(1, GetStreamData(STREAM_READ, STREAM_AUDIO, kHubReader, &frame));
  EXPECT_EQ(kStart + 73 * 20.0, frame.timestampMs);
  EXPECT_EQ(0, frame.keyframeIndex);
  EXPECT_GT(0, GetStreamData(STREAM_GET_CONFIG, STREAM_AUDIO, kHubReader, &frame)) << "there is none";
  GetStreamData(STREAM_UNREGISTER, STREAM_AUDIO, kHubReader, nullptr);
}

TEST_F(StreamHubTest, KeyFrameRequestsReachTheHook) {
  int asked = -1;
  HostSetKeyFrameHook([](void* context, int stream) { *static_cast<int*>(context) = stream; }, &asked);
  const std::int64_t before = HostKeyFrameRequests(kStream);
  EXPECT_EQ(0, SetForceIdr(kStream));
  EXPECT_EQ(kStream, asked);
  HostSetKeyFrameHook(nullptr, nullptr);
  EXPECT_EQ(0, SetForceIdr(kStream));
  EXPECT_EQ(before + 2, HostKeyFrameRequests(kStream));
  EXPECT_GT(0, SetForceIdr(-1));
}

// Readers come, lag and go while the producer publishes, evicts and changes the configuration. Every frame
// read must be whole while it is held; the numbers must only grow.
TEST_F(StreamHubTest, ManyReadersUnderLoad) {
  HostStreamSetLookBack(kStream, 2, 40000);
  std::atomic<bool> stop{false};
  std::atomic<int> faults{0};
  std::vector<std::thread> readers;
  for (std::uintptr_t id = 1; id <= 6; ++id) {
    readers.emplace_back([&stop, &faults, id] {
      StreamFrame held;
      std::int64_t last = -1;
      for (unsigned pass = 0; !stop.load(); ++pass) {
        double lookBack = 100.0 * id;
        if (pass % 200 == 0) {
          GetStreamData(STREAM_UNREGISTER, kStream, id, nullptr);
          GetStreamData(STREAM_REGISTER, kStream, id, &lookBack);
          last = -1;
        }
        if (GetStreamData(STREAM_GET_CONFIG, kStream, id, &held) == 0 && held.data[held.length - 1] == 0xff)
          ++faults;
        if (GetStreamData(STREAM_READ, kStream, id, &held) <= 0) continue;
        if (id % 2 == 0) std::this_thread::sleep_for(std::chrono::microseconds(300));
        const int length = held.length;
        for (int i = 4; i < length; ++i) faults += held.data[i] != 0 ? 1 : 0;
        if (held.frameIndex <= last || (last >= 0 && held.frameIndex > last + 1 && held.keyFrame == 0)) ++faults;
        last = held.frameIndex;
        GetStreamData(STREAM_RELEASE, kStream, id, nullptr);
      }
    });
  }
  for (int n = 0; n < 8000; ++n) {
    Publish(kStream, n, 50 + n % 900);
    const unsigned char config[] = {0, 0, 0, 1, static_cast<unsigned char>(n % 200)};
    if (n % 50 == 0) HostStreamSetConfig(kStream, config, sizeof(config));
    if (n % 16 == 0) std::this_thread::sleep_for(std::chrono::microseconds(100));
  }
  stop = true;
  for (std::thread& reader : readers) reader.join();
  EXPECT_EQ(0, faults.load());
}

}  // namespace
}  // namespace record
