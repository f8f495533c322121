#include "storage/file_syncer.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <memory>
#include <thread>

#include "record/storage.h"
#include "tests/record/file_faults.h"
#include "tests/support/device_test.h"

namespace record {
namespace {

constexpr int kShortMs = 5;

int SyncThreads() {
  int count = 0;
  DIR* tasks = opendir("/proc/self/task");
  while (const dirent* task = readdir(tasks))
    count += fake::ReadFile(std::string("/proc/self/task/") + task->d_name + "/comm") == "RecordSync\n" ? 1 : 0;
  closedir(tasks);
  return count;
}

template <typename Condition>
bool Eventually(const Condition& condition) {
  for (int i = 0; i < 5000; ++i) {
    if (condition()) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return false;
}

void Rest(int milliseconds) {
  std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

// A descriptor that no sync succeeds on: fdatasync of a socket is an error.
class Unsyncable {
 public:
  Unsyncable() {
    int ends[2];
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
    m_file = ends[0];
    close(ends[1]);
  }
  ~Unsyncable() { close(m_file); }
  int File() const { return m_file; }

 private:
  int m_file;
};

class FileSyncerTest : public fake::DeviceTest {
 protected:
  FileSyncerTest() { SetRecordSyncInterval(kShortMs); }
  ~FileSyncerTest() override {
    EXPECT_TRUE(Eventually([] { return SyncThreads() == 0; })) << "the thread outlives its files";
    SetRecordSyncInterval(1000);
  }
  int OpenRecord(const std::string& name) {
    fake::WriteFile(Path("/mnt/mmc0/schedule/20240131/" + name), "x");
    return open(Path("/mnt/mmc0/schedule/20240131/" + name).c_str(), O_RDWR | O_CLOEXEC);
  }

  FileSyncer& m_syncer = FileSyncer::Get();
};

TEST_F(FileSyncerTest, AFailedSyncIsToldOnceAndNeverRetried) {
  const Unsyncable bad;
  const Unsyncable other;
  const int good = OpenRecord("081500-av-1.kmv");
  std::atomic<int> badFailed{0};
  std::atomic<int> goodFailed{0};
  std::atomic<int> otherFailed{0};
  m_syncer.Add(good, Path("/mnt/mmc0/schedule/20240131/081500-av-1.kmv"), &goodFailed);
  m_syncer.Add(bad.File(), Path("/mnt/mmc0/schedule/20240131/bad.kmv"), &badFailed);
  EXPECT_TRUE(Eventually([&] { return badFailed == 1; }));
  badFailed = 0;
  m_syncer.SyncAll();
  // A file that is added later is seen to; the dead one is not, not even by that pass.
  m_syncer.Add(other.File(), "bad too", &otherFailed);
  EXPECT_TRUE(Eventually([&] { return otherFailed == 1; }));
  Rest(10 * kShortMs);
  EXPECT_EQ(badFailed, 0);
  EXPECT_EQ(goodFailed, 0);
  for (const int file : {bad.File(), other.File(), good}) m_syncer.Remove(file);
  m_syncer.Remove(good);  // not there any more
  close(good);
}

TEST_F(FileSyncerTest, OneThreadServesAllFilesAndEndsAfterTheLast) {
  std::atomic<int> failed{0};
  const int first = OpenRecord("081500-av-1.kmv");
  const int second = OpenRecord("081500-av-2.kmv");
  m_syncer.Add(first, "", &failed);
  m_syncer.Add(second, "", &failed);
  EXPECT_TRUE(Eventually([] { return SyncThreads() == 1; }));
  m_syncer.Remove(first);
  Rest(5 * kShortMs);
  EXPECT_EQ(SyncThreads(), 1);
  m_syncer.Remove(second);
  EXPECT_TRUE(Eventually([] { return SyncThreads() == 0; }));
  m_syncer.Add(first, "", &failed);
  EXPECT_TRUE(Eventually([] { return SyncThreads() == 1; }));
  m_syncer.Remove(first);
  EXPECT_EQ(failed, 0);
  close(first);
  close(second);
}

TEST_F(FileSyncerTest, IntervalZeroLeavesSyncingToTheEndOfTheFile) {
  SetRecordSyncInterval(0);
  const Unsyncable bad;
  std::atomic<int> failed{0};
  m_syncer.Add(bad.File(), "", &failed);
  Rest(4 * kShortMs);
  EXPECT_EQ(SyncThreads(), 0);
  EXPECT_EQ(failed, 0);

  SetRecordSyncInterval(kShortMs);  // for the files that are open already, too
  EXPECT_TRUE(Eventually([&] { return failed == 1; }));
  EXPECT_EQ(SyncThreads(), 1);
  SetRecordSyncInterval(-5);
  EXPECT_TRUE(Eventually([] { return SyncThreads() == 0; }));
  m_syncer.Remove(bad.File());
}

// A new file does not wait for the interval to pass: its directories have to be on the medium soon.
TEST_F(FileSyncerTest, AFileThatIsAddedIsSyncedAtOnce) {
  SetRecordSyncInterval(600000);
  const int good = OpenRecord("081500-av-1.kmv");
  const Unsyncable bad;
  std::atomic<int> goodFailed{0};
  std::atomic<int> failed{0};
  m_syncer.Add(good, "", &goodFailed);
  Rest(20);
  m_syncer.Add(bad.File(), "", &failed);
  EXPECT_TRUE(Eventually([&] { return failed == 1; }));
  m_syncer.Remove(bad.File());
  m_syncer.Remove(good);
  close(good);
}

TEST_F(FileSyncerTest, AMediumThatHangsHoldsUpNoOther) {
  auto hang = std::make_unique<fake::FileHang>("hanging share");
  const int share = memfd_create("hanging share", MFD_CLOEXEC);
  const Unsyncable bad;
  std::atomic<int> shareFailed{0};
  std::atomic<int> failed{0};
  m_syncer.Add(share, "", &shareFailed);
  EXPECT_TRUE(Eventually([&] { return hang->Waiting() == 1; }));
  m_syncer.Add(bad.File(), "", &failed);
  EXPECT_TRUE(Eventually([&] { return failed == 1; })) << "its syncs go on";
  m_syncer.Remove(bad.File());
  EXPECT_EQ(hang->Waiting(), 1);
  hang.reset();
  m_syncer.Remove(share);
  close(share);
}

// The flag and the descriptor go right after Remove: the address checker sees a sync that comes later.
TEST_F(FileSyncerTest, NothingIsTouchedAfterRemove) {
  SetRecordSyncInterval(1);
  const auto life = [this](bool healthy, int round) {
    auto failed = std::make_unique<std::atomic<int>>(0);
    const std::string name = "0815" + std::to_string(round % 4) + "0-av-1.kmv";
    const Unsyncable bad;
    const int file = healthy ? OpenRecord(name) : bad.File();
    m_syncer.Add(file, Path("/mnt/mmc0/schedule/20240131/" + name), failed.get());
    if (round % 3 == 0) Rest(1);
    if (round % 5 == 0) m_syncer.SyncAll();
    m_syncer.Remove(file);
    EXPECT_TRUE(!healthy || *failed == 0);
    failed.reset();
    if (healthy) close(file);
  };
  std::vector<std::thread> threads;
  for (int n = 0; n < 4; ++n)
    threads.emplace_back([&, n] {
      for (int round = 0; round < 100; ++round) life(n % 2 == 0, round);
    });
  for (std::thread& thread : threads) thread.join();
}

}  // namespace
}  // namespace record
