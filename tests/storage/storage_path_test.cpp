#include <climits>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <memory>

#include "base/device_path.h"
#include "record/storage.h"
#include "tests/support/device_test.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class StoragePathTest : public fake::DeviceTest {
 protected:
  // The path on the device, or "(null)"; releases the array.
  std::string Taken(char* path) {
    const std::unique_ptr<char[]> owned(path);
    if (path == nullptr) return "(null)";
    EXPECT_TRUE(std::filesystem::is_directory(path)) << path;
    return WithoutRoot(path);
  }

  void MountNetwork() { Mount(record::kNetworkShare, 0); }

  RecordConfig m_config = {1, 1, {}};
};

constexpr int kUnmounted = -1;

TEST_F(StoragePathTest, TheFirstMediumWithMoreRoomThanNeededIsTaken) {
  struct Case {
    int freeMB[3];
    int needMB;
    int medium;
  };
  const Case cases[] = {
      {{400, 900, kUnmounted}, 500, 1},
      {{400, 500, kUnmounted}, 500, -1},
      {{400, 501, 9000}, 500, 1},
      {{501, 9000, 9000}, 500, 0},
      {{kUnmounted, kUnmounted, 501}, 500, 2},
      {{kUnmounted, kUnmounted, kUnmounted}, 0, -1},
      {{0, kUnmounted, kUnmounted}, 0, -1},
      {{0, kUnmounted, kUnmounted}, -1, 0},
      {{INT_MAX, kUnmounted, kUnmounted}, INT_MAX, -1},
  };
  for (const Case& each : cases) {
    m_platform.Reset();
    Mount(record::kNetworkShare, INT_MAX);  // never chosen
    for (int medium = 0; medium < 3; ++medium) {
      if (each.freeMB[medium] != kUnmounted) Mount(medium, each.freeMB[medium]);
    }
    EXPECT_EQ(GetStorageMediaIndex(nullptr, each.needMB), each.medium);
    if (each.medium < 0)
      EXPECT_TRUE(m_platform.Logged("]all mounted storage free space is less than " + std::to_string(each.needMB) +
                                    "M\n\n"));
    else
      EXPECT_TRUE(m_platform.Logged("mounted, free space=" + std::to_string(each.freeMB[each.medium]) +
                                    "M, use percent=25.000000.\n\n"));
  }
}

TEST_F(StoragePathTest, LocalDirectoriesAreMadeForEachKindAndDay) {
  Mount(record::kFirstCard, 1000);
  EXPECT_EQ(Taken(GetStoragePath(&m_config, 11, 500)), "/mnt/mmc0/manual/20240131");
  EXPECT_THAT(m_platform.Calls(),
              ElementsAre("SafeMakeDir(/mnt/mmc0/manual)", "SafeMakeDir(/mnt/mmc0/manual/20240131)"));
  EXPECT_EQ(Taken(GetStoragePath(&m_config, 7, 500)), "/mnt/mmc0/alarm/20240131");
  m_clock.Reset(2024, 12, 1, 0, 0, 0);
  EXPECT_EQ(Taken(GetStoragePath(&m_config, 1, 500)), "/mnt/mmc0/schedule/20241201");
  EXPECT_EQ(Taken(GetStoragePath(&m_config, 1, 1000)), "(null)");
  m_config.local_enable = 0;
  EXPECT_EQ(Taken(GetStoragePath(&m_config, 1, 500)), "(null)");
}

TEST_F(StoragePathTest, TheServerFlagSendsLocalRecordsToOneDirectoryBelowTmp) {
  SetFlag(record::flag::kIpcServer);
  EXPECT_EQ(Taken(GetStoragePath(&m_config, 3, 500)), "/tmp/motion/alarm");
  EXPECT_THAT(m_platform.Calls(), ElementsAre("SafeMakeDir(/tmp/motion)", "SafeMakeDir(/tmp/motion/alarm)"));
  Mount(record::kFirstCard, 1000);
  EXPECT_EQ(Taken(GetStoragePath(&m_config, 10, 500)), "/tmp/schedule/alarm");
  m_config.local_enable = 0;
  EXPECT_EQ(Taken(GetStoragePath(&m_config, 3, 500)), "(null)");
}

TEST_F(StoragePathTest, TheNetworkShareNeedsItsSwitchAndItsMountButNoRoom) {
  EXPECT_EQ(Taken(GetNetworkStoragePath(&m_config, 1, 500)), "(null)");
  EXPECT_TRUE(m_platform.Logged("]network storage not mounted.\n\n"));
  MountNetwork();
  EXPECT_EQ(Taken(GetNetworkStoragePath(&m_config, 1, 500)), "/tmp/network/SN0001/schedule/20240131");
  EXPECT_THAT(m_platform.Calls(),
              ElementsAre("SafeMakeDir(/tmp/network/SN0001)", "SafeMakeDir(/tmp/network/SN0001/schedule)",
                          "SafeMakeDir(/tmp/network/SN0001/schedule/20240131)"));
  EXPECT_EQ(Taken(GetNetworkStoragePath(&m_config, 12, 500)), "/tmp/network/SN0001/motion/20240131");
  EXPECT_EQ(Taken(GetNetworkStoragePath(&m_config, 13, 500)), "/tmp/network/SN0001/alarm/20240131");
  EXPECT_EQ(Taken(GetNetworkStoragePath(&m_config, 7, 500)), "/tmp/network/SN0001/alarm/20240131");
  m_config.network_enable = 0;
  EXPECT_EQ(Taken(GetNetworkStoragePath(&m_config, 1, 500)), "(null)");
  EXPECT_TRUE(m_platform.Logged("]network storage not enabled.\n\n"));
}

TEST_F(StoragePathTest, OnlyEventsGoIntoRam) {
  for (const int kind : {3, 4, 12, 13})
    EXPECT_EQ(Taken(GetTmpFsPath(&m_config, kind, 500)), "/tmp/record") << kind;
  for (const int kind : {0, 1, 2, 5, 10, 11, 14, -1})
    EXPECT_EQ(Taken(GetTmpFsPath(&m_config, kind, 500)), "(null)") << kind;
}

TEST_F(StoragePathTest, TimeLapsePrefersTheNetworkShare) {
  EXPECT_EQ(GetCreateTimelapsePath(&m_config, 500), "");
  Mount(record::kUsb, 501);
  EXPECT_EQ(GetCreateTimelapsePath(&m_config, 500), Path("/mnt/usb/timelapse"));
  EXPECT_TRUE(fake::Exists(Path("/mnt/usb/timelapse")));
  MountNetwork();
  EXPECT_EQ(GetCreateTimelapsePath(&m_config, 500), Path("/tmp/network/SN0001/timelapse"));
  EXPECT_THAT(m_platform.Calls(),
              ElementsAre("SafeMakeDir(/mnt/usb/timelapse)", "SafeMakeDir(/tmp/network/SN0001)",
                          "SafeMakeDir(/tmp/network/SN0001/timelapse)"));
}

// The directory is handed out all the same; the file that cannot be opened there tells.
TEST_F(StoragePathTest, ADirectoryThatCannotBeMadeIsNoFailureHere) {
  Mount(record::kFirstCard, 1000);
  fake::WriteFile(Path("/mnt/mmc0/schedule"), "a file");
  const std::unique_ptr<char[]> path(GetStoragePath(&m_config, 1, 500));
  ASSERT_NE(path, nullptr);
  EXPECT_EQ(path.get(), Path("/mnt/mmc0/schedule/20240131"));
}

TEST_F(StoragePathTest, DirSpaceCountsWholeKibOfTheFilesDirectlyInIt) {
  const std::string directory = Path("/mnt/mmc0/schedule");
  EXPECT_EQ(GetDirSpace(directory.c_str()), 0);
  EXPECT_THAT(m_platform.dirSpace, IsEmpty()) << "what cannot be read is not remembered";
  fake::WriteFile(directory + "/a", std::string(1023, 'x'));
  fake::WriteFile(directory + "/b", std::string(2047, 'x'));
  fake::WriteFile(directory + "/c", std::string(4096, 'x'));
  fake::WriteFile(directory + "/sub/d", std::string(8192, 'x'));
  fake::WriteFile(Path("/elsewhere"), std::string(16384, 'x'));
  std::filesystem::create_symlink(Path("/elsewhere"), directory + "/link");
  std::filesystem::create_symlink(directory, directory + "/loop");
  EXPECT_EQ(GetDirSpace(directory.c_str()), 5);
  EXPECT_EQ(m_platform.dirSpace.at("/mnt/mmc0/schedule"), 5);
  EXPECT_TRUE(m_platform.Logged("]dir: " + directory + " size= 5 K\n"));

  m_platform.dirSpace["/mnt/mmc0/schedule"] = 77;
  EXPECT_EQ(GetDirSpace(directory.c_str()), 77);
  EXPECT_TRUE(m_platform.Logged("]got size of dir: " + directory + " from cache, size is 77\n\n"));
  for (const int forgotten : {0, -1}) {
    m_platform.dirSpace["/mnt/mmc0/schedule"] = forgotten;
    EXPECT_EQ(GetDirSpace(directory.c_str()), 5);
  }
}

TEST_F(StoragePathTest, HugeFilesDoNotOverflowTheSize) {
  const std::string directory = Path("/mnt/mmc0/schedule");
  std::error_code error;
  for (const char* name : {"/a", "/b"}) {
    fake::WriteFile(directory + name, "");
    std::filesystem::resize_file(directory + name, 3LL << 40, error);  // sparse
    if (error) GTEST_SKIP() << "no sparse files of 3 TiB here";
  }
  EXPECT_EQ(GetDirSpace(directory.c_str()), INT_MAX);
}

TEST(TimeStamp, SplitsIntoLocalTimeAndMilliseconds) {
  struct Case {
    double milliseconds;
    time_t second;
    int millisecond;
  };
  const Case cases[] = {
      {1700000000123, 1700000000, 123},   {0, 0, 0},     {999, 0, 999},  {1000, 1, 0},
      {1700000000123.9, 1700000000, 123}, {-1, -1, 999}, {-1000, -1, 0}, {-1000.5, -2, 999},
      {4294967296000.0, 4294967296, 0},
  };
  for (const Case& each : cases) {
    if (static_cast<time_t>(each.second) < 0 && each.second > 0) continue;  // a machine that ends in 2038
    EXPECT_EQ(TimeStampGetMis(each.milliseconds), each.millisecond) << each.milliseconds;
    struct tm expected = {};
    localtime_r(&each.second, &expected);
    const struct tm* local = TimeStampGetTm(each.milliseconds);
    ASSERT_NE(local, nullptr);
    EXPECT_EQ(local->tm_year, expected.tm_year) << each.milliseconds;
    EXPECT_EQ(local->tm_yday, expected.tm_yday) << each.milliseconds;
    EXPECT_EQ(local->tm_hour * 3600 + local->tm_min * 60 + local->tm_sec,
              expected.tm_hour * 3600 + expected.tm_min * 60 + expected.tm_sec)
        << each.milliseconds;
  }
}

TEST(DeviceRoot, MovesEveryPathAndRefusesWhatWouldNotFit) {
  EXPECT_EQ(DevicePath("/mnt/mmc0"), "/mnt/mmc0");
  EXPECT_EQ(SetDeviceRoot("/some/where//"), 0);
  EXPECT_STREQ(GetDeviceRoot(), "/some/where");
  EXPECT_EQ(SetDeviceRoot(("/" + std::string(160, 'x')).c_str()), -1);
  EXPECT_EQ(DevicePath("/tmp"), "/some/where/tmp");
  EXPECT_EQ(SetDeviceRoot(("/" + std::string(159, 'x')).c_str()), 0);
  EXPECT_EQ(SetDeviceRoot(nullptr), 0);
  EXPECT_EQ(DevicePath("/tmp"), "/tmp");
}

TEST(ShellWord, IsOneWordForTheShellWhateverIsInIt) {
  for (const std::string path :
       {"/tmp/a-b_c.kmv", "", "/tmp/a b", "/tmp/it's", "/tmp/$(reboot)`x`;&|<>*?~\\\"", "a\nb"}) {
    const std::string file = ::testing::TempDir() + "shell-word-" + std::to_string(getpid());
    ASSERT_EQ(std::system(("printf %s " + record::ShellWord(path) + " > " + file).c_str()), 0);
    EXPECT_EQ(fake::ReadFile(file), path);
    std::filesystem::remove(file);
  }
  EXPECT_EQ(record::ShellWord("/tmp/20240131081500-av-1.kmv"), "/tmp/20240131081500-av-1.kmv");
}

}  // namespace
