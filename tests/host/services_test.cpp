// The small services: mutex, rings, storage, directory sizes, clocks, identity, alarms, shell.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <climits>
#include <string>
#include <thread>
#include <vector>

#include "record/storage.h"
#include "record_host/host.h"
#include "tests/host/support/clips.h"

namespace record {
namespace {

class RootedTest : public testing::Test {
 protected:
  RootedTest() { SetDeviceRoot(m_directory.Path().c_str()); }
  ~RootedTest() override { SetDeviceRoot(""); }
  const TempDir m_directory;
};

TEST(HostMutexTest, TellsWhoHoldsItAndForHowLong) {
  CMutex mutex;
  EXPECT_EQ(0u, mutex.GetLockedLine());
  EXPECT_EQ(0u, mutex.GetLockedTime());
  EXPECT_EQ(-1, mutex.Unlock()) << "nobody holds it";
  EXPECT_EQ(0, mutex.Lock(123));
  usleep(60000);
  std::thread([&mutex] {
    EXPECT_EQ(123u, mutex.GetLockedLine());
    EXPECT_GE(mutex.GetLockedTime(), 45u);
    EXPECT_EQ(1, mutex.IsLockedExeedtime(40));
    EXPECT_EQ(0, mutex.IsLockedExeedtime(60000));
    EXPECT_EQ(-1, mutex.Unlock()) << "not the holder";
  }).join();
  EXPECT_EQ(123u, mutex.GetLockedLine());
  EXPECT_EQ(0, mutex.UnLock());
  EXPECT_EQ(0u, mutex.GetLockedLine());
  EXPECT_EQ(0, mutex.IsLockedExeedtime(0));
}

TEST(HostMutexTest, WatchedWhileContended) {
  CMutex mutex;
  int counter = 0;
  std::atomic<bool> stop{false};
  std::thread watchdog([&] {
    while (!stop) {
      EXPECT_LT(mutex.GetLockedTime(), 30000u) << "a time that wrapped";
      const unsigned int line = mutex.GetLockedLine();
      EXPECT_TRUE(line == 0 || line == 7 || line == 8) << line;
    }
  });
  std::vector<std::thread> workers;
  for (unsigned int line : {7u, 8u, 7u}) {
    workers.emplace_back([&mutex, &counter, line] {
      for (int i = 0; i < 5000; ++i) {
        mutex.Lock(line);
        ++counter;
        mutex.Unlock();
      }
    });
  }
  for (std::thread& worker : workers) worker.join();
  stop = true;
  watchdog.join();
  EXPECT_EQ(15000, counter);
}

TEST(FrameRingTest, OverwritesTheOldestByBytesAndByCount) {
  void* ring = OsalRingInit(1000, 4);
  ASSERT_NE(nullptr, ring);
  std::vector<unsigned char> bytes(1001);
  RingFrameInfo info = {};
  int length = 7;
  EXPECT_EQ(nullptr, OsalRingRead(ring, &length, &info));
  EXPECT_EQ(0, length);
  EXPECT_EQ(-1, OsalRingGetFrameInfo(ring, &info));
  EXPECT_EQ(-1, OsalRingWrite(ring, &info, bytes.data(), 1001)) << "can never fit";
  for (int n = 0; n < 6; ++n) {
    info.frameIndex = n;
    EXPECT_EQ(0, OsalRingWrite(ring, &info, bytes.data(), 10));
  }
  ASSERT_EQ(0, OsalRingGetFrameInfo(ring, &info));
  EXPECT_EQ(2, info.frameIndex) << "four fit";
  info.frameIndex = 6;
  EXPECT_EQ(0, OsalRingWrite(ring, &info, bytes.data(), 975));
  ASSERT_EQ(0, OsalRingGetFrameInfo(ring, &info));
  EXPECT_EQ(4, info.frameIndex) << "5 bytes short, and one by count";
  OsalRingRelease(ring);
  EXPECT_EQ(nullptr, OsalRingInit(0, 4));
  EXPECT_EQ(nullptr, OsalRingInit(1000, 0));
}

// A writer that goes round and round, and a reader: every frame comes whole, in order, and stays what it was.
TEST(FrameRingTest, WriterAndReaderAtOnce) {
  void* ring = OsalRingInit(3001, 16);
  std::atomic<bool> done{false};
  std::thread writer([ring, &done] {
    std::vector<unsigned char> bytes;
    for (int n = 1; n <= 20000; ++n) {
      const RingFrameInfo info = {RING_FRAME_VIDEO, 0, n * 1.0, n};
      bytes.assign(static_cast<size_t>(1 + n * 37 % 800), static_cast<unsigned char>(n));
      EXPECT_EQ(0, OsalRingWrite(ring, &info, bytes.data(), static_cast<int>(bytes.size())));
    }
    done = true;
  });
  std::int64_t last = 0;
  int faults = 0;
  for (bool through = false; !through;) {
    through = done;
    RingFrameInfo info;
    int length = 0;
    while (const unsigned char* data = OsalRingRead(ring, &length, &info)) {
      if (info.frameIndex <= last || length != 1 + info.frameIndex * 37 % 800) ++faults;
      for (int i = 0; i < length; ++i) faults += data[i] != static_cast<unsigned char>(info.frameIndex) ? 1 : 0;
      last = info.frameIndex;
    }
  }
  writer.join();
  EXPECT_EQ(0, faults);
  EXPECT_EQ(20000, last) << "what was written last is there";
  OsalRingRelease(ring);
}

TEST_F(RootedTest, DirectoriesStandForMedia) {
  const std::string card = DevicePath("/mnt/mmc0");
  EXPECT_EQ(0, DRIVER_isDeviceMounted(card.c_str()));
  EXPECT_GT(0, GetStorageFreeSpace(0));
  EXPECT_EQ(0, SafeMakeDir((card + "/schedule/20240131/").c_str())) << "with what is missing above it";
  EXPECT_EQ(0, SafeMakeDir(card.c_str()));
  EXPECT_EQ(1, DRIVER_isDeviceMounted(card.c_str()));
  EXPECT_LT(0, GetStorageFreeSpace(0));
  EXPECT_GT(0, GetStorageFreeSpace(4));
  EXPECT_GT(0, GetStorageFreeSpace(-1));
  const double used = GetStorageUsedPercentage(0);
  EXPECT_TRUE(used >= 0 && used <= 100) << used;
  const std::string file = card + "/file";
  WriteFile(file, "x");
  EXPECT_EQ(1, FileExist(file.c_str()));
  EXPECT_EQ(0, FileExist((card + "/none").c_str()));
  EXPECT_GT(0, SafeMakeDir(file.c_str()));
  EXPECT_GT(0, SafeMakeDir((file + "/below").c_str()));
  EXPECT_GT(0, SafeMakeDir(""));
  EXPECT_EQ(0, DRIVER_isDeviceMounted(file.c_str()));
}

TEST(HostStorageTest, WithoutADeviceRootOnlyMountsCount) {
  const TempDir directory;
  // The root directory need not be one: a build may run in a directory tree of its own.
  EXPECT_EQ(1, DRIVER_isDeviceMounted("/proc"));
  EXPECT_EQ(0, DRIVER_isDeviceMounted("/usr/include"));
  EXPECT_EQ(0, DRIVER_isDeviceMounted(directory.Path().c_str()));
}

TEST(HostStorageTest, DirectorySizeIsForgottenWhenTheDirectoryChanges) {
  const TempDir directory;
  const char* path = directory.Path().c_str();
  EXPECT_GE(0, LoadDirSpaceFromCache(path));
  EXPECT_EQ(0, SaveDirSpaceToCache(path, 77));
  EXPECT_EQ(77, LoadDirSpaceFromCache(path));
  usleep(20000);  // the file system's clock is coarse
  WriteFile(directory.Path() + "/new", "x");
  EXPECT_GE(0, LoadDirSpaceFromCache(path));
  EXPECT_GT(0, SaveDirSpaceToCache("/no/such/directory", 5));
}

TEST(HostClockTest, Differences) {
  EXPECT_EQ(1500, timeval_differ(10, 500000, 9, 0));
  EXPECT_EQ(-1500, timeval_differ(9, 0, 10, 500000));
  EXPECT_EQ(1, timeval_differ(10, 999, 9, 999000));
  EXPECT_EQ(4294967295000, timeval_differ(UINT_MAX, 0, 0, 0));
  const time_t now = time(nullptr);
  struct tm local;
  localtime_r(&now, &local);
  EXPECT_EQ(now, zq_mktime(local.tm_year + 1900, local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min,
                           local.tm_sec, 720));
}

TEST(HostIdentityTest, SerialIsFitForAPath) {
  char serial[32];
  ASSERT_EQ(0, GetSN(serial, sizeof(serial)));
  const std::string before = serial;
  EXPECT_FALSE(before.empty());
  EXPECT_LE(before.size(), 24u);
  for (const char* bad : {"", "..", "a/b", "a b", "1234567890123456789012345", "\xc3\xa4"}) {
    EXPECT_EQ(-1, HostSetIdentity(bad, "unused")) << bad;
  }
  MediaConfig config;
  ASSERT_EQ(0, MsgGetMediaConfig(&config));
  EXPECT_STREQ("librecord", config.deviceName);
  EXPECT_EQ(0, HostSetIdentity("CAM-1_x.2", std::string(200, 'n').c_str()));
  ASSERT_EQ(0, GetSN(serial, 5));
  EXPECT_STREQ("CAM-", serial);
  ASSERT_EQ(0, MsgGetMediaConfig(&config));
  EXPECT_EQ(std::string(200, 'n'), std::string(config.deviceName, 200));
  EXPECT_EQ(0, config.rest[0]);
  HostSetIdentity(before.c_str(), "librecord");
}

struct Heard {
  std::vector<HostAlarm> alarms;
  std::vector<std::string> texts;
  int unsubscribe = 0;
};

void Hear(void* context, const HostAlarm* alarm) {
  Heard* heard = static_cast<Heard*>(context);
  heard->alarms.push_back(*alarm);
  heard->texts.emplace_back(alarm->text);
  if (heard->unsubscribe != 0) HostAlarmUnsubscribe(heard->unsubscribe);
}

TEST_F(RootedTest, AlarmsAreHeardAndLogged) {
  Heard first;
  Heard second;
  const int firstId = HostAlarmSubscribe(Hear, &first);
  const int secondId = HostAlarmSubscribe(Hear, &second);
  EXPECT_NE(firstId, secondId);
  const AlarmTime time = {2024, 1, 31, 8, 15, 0};
  EXPECT_EQ(0, AuxMsgReportAlarm(&time, ALARM_RECORD_BEGIN, 1, 2, "a\"b\\c\n\x01\xff \xe2\x82\xac \xed\xa0\x80"));
  first.unsubscribe = secondId;
  EXPECT_EQ(0, MsgNotifyAlarm(ALARM_RECORD_END, 3, 4, nullptr));
  EXPECT_EQ(2u, first.alarms.size());
  EXPECT_EQ(1u, second.alarms.size()) << "dropped before its turn";
  EXPECT_EQ(18, first.alarms[0].code);
  EXPECT_EQ(31, first.alarms[0].time.day);
  EXPECT_EQ("", first.texts[1]);
  bool rebooted = false;
  HostSetRebootHook([](void* context) { *static_cast<bool*>(context) = true; }, &rebooted);
  MsgSystemReboot();
  HostSetRebootHook(nullptr, nullptr);
  EXPECT_TRUE(rebooted);
  EXPECT_EQ(HOST_ALARM_REBOOT, first.alarms[2].kind);
  EXPECT_EQ(0, HostAlarmUnsubscribe(firstId));
  EXPECT_EQ(-1, HostAlarmUnsubscribe(firstId));
  EXPECT_EQ(0, add_by_multiparams(5, 6));

  const std::string text = ReadFile(DevicePath("/tmp/alarms.jsonl"));
  EXPECT_EQ(0u,
            text.find("{\"time\":\"2024-01-31T08:15:00\",\"kind\":\"report\",\"code\":18,\"arg1\":1,\"arg2\":2,"
                      "\"text\":\"a\\\"b\\\\c\\u000a\\u0001\\ufffd \xe2\x82\xac \\ufffd\\ufffd\\ufffd\"}\n"))
      << text;
  EXPECT_EQ(4, std::count(text.begin(), text.end(), '\n'));
}

TEST(HostShellTest, RunsWaitsAndLeaksNothing) {
  EXPECT_EQ(0, mysystem("true"));
  EXPECT_EQ(-3, mysystem("exit 3"));
  EXPECT_EQ(-1, mysystem("kill -9 $$"));
  EXPECT_EQ(0, mysystem_with_param("test %d = 7 -a '%s' = x", 7, "x"));
  const unsigned long long start = GetCurrentTimeStamp_u64();
  EXPECT_EQ(0, mysystem("sleep 2 &"));
  EXPECT_LT(GetCurrentTimeStamp_u64() - start, 1500u);
  // Neither a descriptor without O_CLOEXEC nor a blocked signal gets through.
  const int leak = open("/dev/null", O_RDONLY);
  EXPECT_EQ(0, mysystem_with_param("! test -e /proc/self/fd/%d", leak));
  close(leak);
  sigset_t blocked;
  sigset_t before;
  sigemptyset(&blocked);
  sigaddset(&blocked, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &blocked, &before);
  EXPECT_EQ(0, mysystem("grep -q '^SigBlk:[[:space:]]*0*$' /proc/self/status"));
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

TEST(HostLogTest, OneHarmlessLineAMessage) {
  testing::internal::CaptureStderr();
  DebugPrint(8, 7, "[%s:%u]unseen\n\n", "f", 1u);
  HostLogLevel(7);
  DebugPrint(8, 7, "[%s:%u]name %s\n\n", "f", 2u, "a\nb\x1b[31m");
  DebugPrint(8, 8, "[%s:%u]too deep\n", "f", 3u);
  DebugPrint(8, 7, "%s", std::string(10000, 'x').c_str());
  HostLogLevel(-1);
  const std::string text = testing::internal::GetCapturedStderr();
  EXPECT_EQ(2, std::count(text.begin(), text.end(), '\n'));
  EXPECT_NE(std::string::npos, text.find(" 8/7 [f:2]name a?b?[31m\n")) << text;
  EXPECT_EQ('\n', text.back());
  EXPECT_EQ(std::string::npos, text.find("unseen"));
}

}  // namespace
}  // namespace record
