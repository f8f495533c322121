// What a record task leaves beside its record file.
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>

#include "storage/record_info.h"
#include "tests/record/file_faults.h"
#include "tests/record/probe_task.h"
#include "tests/support/device_test.h"
#include "tests/support/document_image.h"

namespace {

using recordtest::ProbeTask;
using ::testing::ElementsAre;

class SideFilesTest : public fake::DeviceTest {
 protected:
  SideFilesTest() { std::filesystem::create_directories(m_directory); }
  std::string BeginFile(const std::string& name) {
    m_task.SetFilePath(m_directory + "/" + name);
    return m_directory + "/" + name + ".info";
  }
  RecordInfoStruct Stored(const std::string& path) {
    RecordInfoStruct info = {};
    EXPECT_EQ(record::ReadRecordInfo(path, info), 304);
    return info;
  }

  const std::string m_directory = Path("/mnt/mmc0/schedule/20240131");
  ProbeTask m_task{recordtest::UsualParam(), recordtest::UsualConfig()};
};

TEST_F(SideFilesTest, InfoHoldsTheWallClockStartAndTheRunTimeLength) {
  const std::string path = BeginFile("081500-av-1.kmv");
  m_task.m_info.videoFrames = 7;
  struct Case {
    unsigned startMicroseconds;
    unsigned long long lengthMicroseconds;
    unsigned endSeconds, endMicroseconds, seconds;
  };
  const Case cases[] = {
      {0, 0, 1706688900, 0, 0},
      {0, 2499000, 1706688902, 499000, 2},
      {0, 2500000, 1706688902, 500000, 3},
      {999999, 1, 1706688901, 0, 0},
      {600000, 1500000, 1706688902, 100000, 2},
      {0, 7200000000ULL, 1706696100, 0, 7200},
  };
  for (const Case& each : cases) {
    m_task.SetTimes(1706688900, each.startMicroseconds, each.lengthMicroseconds);
    m_platform.ClearRecord();
    ASSERT_EQ(m_task.WriteInfoFile(0), 0);
    const RecordInfoStruct info = Stored(path);
    EXPECT_EQ(info.startSeconds, 1706688900u);
    EXPECT_EQ(info.startMicroseconds, each.startMicroseconds);
    EXPECT_EQ(info.endSeconds, each.endSeconds);
    EXPECT_EQ(info.endMicroseconds, each.endMicroseconds);
    EXPECT_EQ(info.nTimeSeconds, each.seconds) << each.lengthMicroseconds;
    EXPECT_EQ(info.videoFrames, 7);
    EXPECT_TRUE(m_platform.Logged("]" + path + ", from 1706688900 to " + std::to_string(each.endSeconds) +
                                  ", nTimeSeconds " + std::to_string(each.seconds) + "\n"));
  }
}

TEST_F(SideFilesTest, AnMp4WithoutAKeyFrameLosesItsInfoAtTheEnd) {
  struct Case {
    const char* name;
    int keyFrames;
    int atEnd;
    bool kept;
  };
  const Case cases[] = {
      {"a.mp4", 0, 1, false}, {"a.MP4", 0, 2, false}, {"a.mp4", 0, 0, true},
      {"a.mp4", 1, 1, true},  {"a.kmv", 0, 1, true},  {"a.avi", 0, 1, true},
  };
  for (const Case& each : cases) {
    const std::string path = BeginFile(each.name);
    fake::WriteFile(path, "of the begin");
    m_task.m_info.keyFrames = each.keyFrames;
    EXPECT_EQ(m_task.WriteInfoFile(each.atEnd), each.kept ? 0 : -1) << each.name;
    EXPECT_EQ(fake::Exists(path), each.kept) << each.name << " " << each.atEnd;
  }
  // The directories' names do not count.
  std::filesystem::create_directories(m_directory + "/card.mp4");
  m_task.SetFilePath(m_directory + "/card.mp4/a.kmv");
  m_task.m_info.keyFrames = 0;
  EXPECT_EQ(m_task.WriteInfoFile(1), 0);
}

TEST_F(SideFilesTest, AnInfoThatCannotBeOpenedOrWrittenIsTold) {
  const std::string path = BeginFile("081500-av-1.kmv");
  {
    const fake::FileFault full(fake::FileCall::kWrite, ".kmv.info$", 1, true, ENOSPC);
    EXPECT_EQ(m_task.WriteInfoFile(0), -1);
  }
  EXPECT_TRUE(m_platform.Logged("]save record info to " + path + " failed. ret = 0.\n\n"));
  EXPECT_FALSE(m_platform.Logged("]open "));
  m_task.SetFilePath(Path("/nowhere/a.kmv"));
  EXPECT_EQ(m_task.WriteInfoFile(0), -1);
  EXPECT_TRUE(m_platform.Logged("]open " + Path("/nowhere/a.kmv.info") + " failed!\n\n"));
  m_task.SetFilePath("");
  EXPECT_EQ(m_task.WriteInfoFile(0), -1);
}

TEST_F(SideFilesTest, TheFileListKeepsItsNulBeforeTheLineFeed) {
  EXPECT_EQ(m_task.WriteFileList(m_directory.c_str(), "081500-av-1.kmv"), 0);
  EXPECT_EQ(m_task.WriteFileList(m_directory.c_str(), "082000-av-1.kmv"), 0);
  const std::string path = m_directory + "/recordfiles.txt";
  EXPECT_TRUE(fake::ReadFile(path) == fake::DocumentImage("file-list"));
  EXPECT_TRUE(m_platform.Logged("]puts 081500-av-1.kmv to " + path + "\n"));

  EXPECT_EQ(m_task.WriteFileList(Path("/nowhere").c_str(), "a.kmv"), -1);
  EXPECT_TRUE(m_platform.Logged("]puts a.kmv to " + Path("/nowhere/recordfiles.txt") + " failed\n"));
}

class LockFileTest : public SideFilesTest {
 protected:
  LockFileTest() {
    m_start.tm_year = 124;
    m_start.tm_mday = 31;
  }
  // Whether another opener could take the lock, that is: whether the file is a crash's leftover.
  static bool IsLeftover(const std::string& path) {
    const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    EXPECT_GE(file, 0);
    const bool free = flock(file, LOCK_EX | LOCK_NB) == 0;
    close(file);
    return free;
  }

  struct tm m_start = {};
  char m_first[32] = "081500-av-1.kmv";
  char m_second[32] = "082000-av-1.kmv";
};

TEST_F(LockFileTest, StandsWhileTheFileIsWritten) {
  const std::string path = Path("/tmp/20240131081500-av-1.kmv");
  m_task.CreateLockFile(m_first, &m_start);
  struct stat status;
  ASSERT_EQ(stat(path.c_str(), &status), 0);
  EXPECT_EQ(status.st_size, 0);
  EXPECT_EQ(status.st_mode & 07777, 0u);
  EXPECT_GE(m_task.m_lockFile, 0);
  EXPECT_TRUE(geteuid() != 0 || !IsLeftover(path));  // nobody else may open it
  EXPECT_TRUE(m_platform.Logged("]create lock file: " + path + "\n\n"));

  m_task.RemoveLockFile();
  EXPECT_FALSE(fake::Exists(path));
  EXPECT_EQ(m_task.m_lockFile, -1);
  EXPECT_STREQ(m_task.m_lockFilePath, "");
  EXPECT_TRUE(m_platform.Logged("]remove lock file: " + path + "\n\n"));
  m_task.RemoveLockFile();
  EXPECT_THAT(m_platform.Calls(), ElementsAre("mysystem(rm -f /tmp/20240131081500-av-1.kmv)"));
}

TEST_F(LockFileTest, IsReplacedByTheNextOneAndGoesWithTheTask) {
  m_task.CreateLockFile(m_first, &m_start);
  m_task.CreateLockFile(m_second, &m_start);
  EXPECT_FALSE(fake::Exists(Path("/tmp/20240131081500-av-1.kmv")));
  EXPECT_TRUE(fake::Exists(Path("/tmp/20240131082000-av-1.kmv")));
  m_task.RemoveLockFile();
  {
    ProbeTask dying(recordtest::UsualParam(), recordtest::UsualConfig());
    dying.CreateLockFile(m_first, &m_start);
    EXPECT_TRUE(fake::Exists(Path("/tmp/20240131081500-av-1.kmv")));
  }
  EXPECT_FALSE(fake::Exists(Path("/tmp/20240131081500-av-1.kmv")));
}

class TaskTypeIndexTest : public SideFilesTest {
 protected:
  std::string Minutes() { return std::string(m_task.m_minuteTypes, 1440); }
  std::string m_index = m_directory + "/rec_type.idx";
};

TEST_F(TaskTypeIndexTest, LiesInTheStorageBaseOrElseInTheNetworkBase) {
  EXPECT_EQ(m_task.loadRecTypeIdx(), -1);
  EXPECT_EQ(m_task.updateRecTypeIdx(0), -1);  // no path yet
  m_task.SetNetworkBase(m_directory.c_str());
  fake::WriteFile(m_index, "NNN");
  EXPECT_EQ(m_task.loadRecTypeIdx(), 0);
  EXPECT_EQ(m_task.m_typeIndexPath, m_index);
  EXPECT_EQ(Minutes(), "NNN" + std::string(1437, 'C'));

  m_task.SetStorageBase(Path("/mnt/mmc0").c_str());
  EXPECT_EQ(m_task.loadRecTypeIdx(), -1);  // no file there: the day is empty
  EXPECT_EQ(m_task.m_typeIndexPath, Path("/mnt/mmc0/rec_type.idx"));
  EXPECT_EQ(Minutes(), std::string(1440, 'C'));
}

// A card, or /tmp, that anybody may have prepared.
TEST_F(LockFileTest, NoLinkIsFollowedAndNoPipeWaitedFor) {
  const std::string list = m_directory + "/recordfiles.txt";
  const std::string index = m_directory + "/rec_type.idx";
  const std::string kept(1440, 'k');
  fake::WriteFile(Path("/victim"), kept);
  m_task.SetStorageBase(m_directory.c_str());
  for (const std::string& target : {Path("/victim"), Path("/new")}) {
    for (const std::string& link : {list, index, Path("/tmp/20240131081500-av-1.kmv")}) {
      std::filesystem::remove(link);
      std::filesystem::create_symlink(target, link);
    }
    EXPECT_EQ(m_task.WriteFileList(m_directory.c_str(), "081500-av-1.kmv"), -1);
    m_task.loadRecTypeIdx();
    EXPECT_EQ(m_task.updateRecTypeIdx(600), -1);
    m_task.CreateLockFile(m_first, &m_start);
    EXPECT_EQ(m_task.m_lockFile, -1);
    m_task.RemoveLockFile();
  }
  EXPECT_EQ(fake::ReadFile(Path("/victim")), kept);
  EXPECT_FALSE(fake::Exists(Path("/new")));
  std::filesystem::remove(list);
  ASSERT_EQ(mkfifo(list.c_str(), 0600), 0);
  EXPECT_EQ(m_task.WriteFileList(m_directory.c_str(), "081500-av-1.kmv"), -1);
}

TEST_F(TaskTypeIndexTest, AMinuteThatIsNoneOrCannotBeMarkedIsRefused) {
  m_task.SetStorageBase(m_directory.c_str());
  m_task.loadRecTypeIdx();
  for (const int minute : {-1, 1440, 100000}) EXPECT_EQ(m_task.updateRecTypeIdx(minute), -1) << minute;
  EXPECT_FALSE(fake::Exists(m_index));
  m_task.SetStorageBase(Path("/nowhere").c_str());
  m_task.loadRecTypeIdx();
  EXPECT_EQ(m_task.updateRecTypeIdx(7), -1);
  EXPECT_TRUE(m_platform.Logged("]min=7 failed.\n"));
}

TEST_F(TaskTypeIndexTest, SettingACodeReportsItsAlarmType) {
  m_task.SetStorageBase(m_directory.c_str());
  m_task.loadRecTypeIdx();
  ::testing::internal::CaptureStdout();
  EXPECT_EQ(m_task.setRecTypeIdx(0, 'M'), 0);
  EXPECT_EQ(m_task.setRecTypeIdx(1439, 'z'), 0);
  EXPECT_EQ(m_task.setRecTypeIdx(1440, 'M'), -1);
  EXPECT_EQ(m_task.setRecTypeIdx(-1, 'M'), -1);
  EXPECT_EQ(::testing::internal::GetCapturedStdout(), "alarm_log_type:5alarm_log_type:1");
  EXPECT_THAT(m_platform.Calls(), ElementsAre("add_by_multiparams(0, 5)", "add_by_multiparams(0, 1)"));
  EXPECT_EQ(fake::ReadFile(m_index), "M" + std::string(1438, 'C') + "z");

  std::filesystem::remove(m_index);
  std::filesystem::create_directory(m_index);
  ::testing::internal::CaptureStdout();
  EXPECT_EQ(m_task.setRecTypeIdx(5, 'D'), 0);  // whatever became of the file
  ::testing::internal::GetCapturedStdout();
  EXPECT_EQ(m_task.m_minuteTypes[5], 'D');
}

}  // namespace
