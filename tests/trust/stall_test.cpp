// A card that stalls holds up its syncs, not the frames of the file that is being synced.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <string>
#include <thread>

#include "record/types.h"
#include "tests/trust/loop_disk.h"
#include "tests/trust/read_back.h"
#include "tests/trust/recorder.h"
#include "tests/trust/run_size.h"

namespace trust {
namespace {

using std::chrono::milliseconds;

constexpr int kStallMs = 1000;
const std::vector<Channel> kTwoChannels = {{RECORD_KIND_MANUAL, 0, 100}, {RECORD_KIND_MANUAL, 1, 100}};

class StallTest : public testing::Test {
 protected:
  StallTest() : m_journal(Journal::Create()) {}
  ~StallTest() override {
    Journal::Destroy(m_journal);
    std::error_code ignored;
    if (!m_directory.empty()) std::filesystem::remove_all(m_directory, ignored);
  }

  RecorderPlan Plan(const std::string& root) {
    RecorderPlan plan;
    plan.root = root;
    plan.channels = kTwoChannels;
    EXPECT_TRUE(MakeDevice(root));
    return plan;
  }

  // Waits until both channels record.
  bool AwaitRecording() {
    for (int i = 0; i < 1000; ++i) {
      if (m_journal->FileCount() == 2 && m_journal->File(0).returned > 5 && m_journal->File(1).returned > 5)
        return true;
      std::this_thread::sleep_for(milliseconds(10));
    }
    return false;
  }

  void Print(const char* what) {
    for (int n = 0; n < m_journal->FileCount(); ++n) {
      FileNote& note = m_journal->File(n);
      const auto ms = [](std::int64_t nanoseconds) { return static_cast<double>(nanoseconds) / 1e6; };
      std::printf(
          "%s: channel %d: %u packets, longest write %.1f ms, pass %.1f ms (of which 5 slept), sync %.1f ms\n",
          what, n, note.returned.load(), ms(note.longestWriteNs), ms(note.longestPassNs), ms(note.longestSyncNs));
      note.longestSyncNs = 0;
      note.longestWriteNs = note.longestPassNs = 0;
    }
  }

  // Frames follow each other without a hole, medium by medium.
  static void ExpectNoHole(const FileNote& note) {
    std::uint32_t last[2] = {0, 0};
    constexpr std::uint32_t kStreams = 3;
    for (std::uint32_t n = 0; n < note.returned; ++n) {
      const PacketNote& packet = note.packets[n];
      std::uint32_t& before = last[packet.video ? 1 : 0];
      EXPECT_EQ(packet.number, before != 0 ? before + kStreams : packet.number);
      before = packet.number;
    }
  }

  Journal* const m_journal;
  std::string m_directory;
};

// While each sync of the file takes a second, its frames go on.
TEST_F(StallTest, FramesAreWrittenWhileASyncStalls) {
  char path[] = "/tmp/record-stall-XXXXXX";
  ASSERT_NE(mkdtemp(path), nullptr);
  m_directory = path;
  RecorderPlan plan = Plan(m_directory);
  plan.syncStallMs = kStallMs;
  Recorder recorder(plan, *m_journal);
  ASSERT_TRUE(AwaitRecording());
  std::this_thread::sleep_for(milliseconds(5 * kStallMs));
  recorder.Kill();
  Print("syncs of 1 s");
  for (int n = 0; n < m_journal->FileCount(); ++n) {
    FileNote& note = m_journal->File(n);
    ASSERT_GE(note.syncs, 1u);
    EXPECT_GT(note.leastWhileSyncing, 0u) << "a sync held up the file's frames";
    ExpectNoHole(note);
  }
}

// A device that takes no byte for a second: a disk whose file lies on another disk that is frozen meanwhile.
TEST_F(StallTest, NoFrameIsLostOnADeviceThatStalls) {
  LoopDisk outer("/var/tmp", 1500LL << 20);
  if (!outer.WhyNot().empty()) GTEST_SKIP() << "no disk to stall: " << outer.WhyNot();
  LoopDisk inner(outer.MountPoint(), 1000LL << 20);
  ASSERT_EQ(inner.WhyNot(), "");
  RecorderPlan plan = Plan(inner.MountPoint());
  plan.syncIntervalMs = static_cast<int>(FromEnvironment("RECORD_SYNC_MS", plan.syncIntervalMs));
  Recorder recorder(plan, *m_journal);
  ASSERT_TRUE(AwaitRecording());
  std::this_thread::sleep_for(milliseconds(2 * kStallMs));
  Print("device in order");
  const long stalls = FromEnvironment("RECORD_STALLS", 3);
  for (long stall = 0; stall < stalls; ++stall) {
    ASSERT_TRUE(outer.StallFor(kStallMs));
    std::this_thread::sleep_for(milliseconds(kStallMs + kStallMs / 4));
    Print("device stalled for 1 s");
  }
  recorder.Kill();
  for (int n = 0; n < m_journal->FileCount(); ++n) {
    const FileNote& note = m_journal->File(n);
    EXPECT_GE(ReadFrames(note.path, note).frames, note.returned);
    ExpectNoHole(note);
  }
}

}  // namespace
}  // namespace trust
