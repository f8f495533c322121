// Finding the oldest and deleting them, on tidy trees and on hostile ones.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <random>

#include "base/time_word.h"
#include "record/maintenance.h"
#include "record/task_manager.h"
#include "storage/layout.h"
#include "tests/record/probe_task.h"
#include "tests/support/device_test.h"

namespace fs = std::filesystem;

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using Names = std::vector<std::string>;

class OldRecordsTest : public fake::DeviceTest {
 protected:
  OldRecordsTest() { TaskManagerInit(); }
  ~OldRecordsTest() override { TaskManagerInit(); }

  void Add(const std::string& name) { fake::WriteFile(m_card + "/" + name, name); }
  bool Has(const std::string& name) const { return fs::exists(fs::symlink_status(m_card + "/" + name)); }
  // Paths below the card, in the list's order; frees the list, whose links hold both ways.
  Names Take(OldFileInfo_s* head) const {
    Names names;
    OldFileInfo_s* before = nullptr;
    while (head != nullptr) {
      EXPECT_EQ(head->prev, before);
      if (before != nullptr) names.push_back(std::string(before->path).substr(m_card.size() + 1));
      std::free(before);
      before = head;
      head = head->next;
    }
    if (before != nullptr) names.push_back(std::string(before->path).substr(m_card.size() + 1));
    std::free(before);
    return names;
  }
  Names Oldest(unsigned count) { return Take(FindOldFiles(m_card.data(), count, nullptr)); }
  Names Directories(const std::string& path) const {
    OldFileInfo_s* head = nullptr;
    EXPECT_EQ(findAllDirs(path.c_str(), &head, nullptr, 1), 0);
    return Take(head);
  }
  Names FreeList(unsigned count) {
    std::list<_VrRecordFileInfo> files;
    EXPECT_EQ(GetOldFileList(m_card.c_str(), files, count), 0);
    Names names;
    for (const auto& file : files) names.push_back(file.strPath.substr(m_card.size() + 1));
    return names;
  }

  std::string m_card = Path("/mnt/mmc0");
};

TEST_F(OldRecordsTest, NamesTellTimes) {
  struct Case {
    const char *directory, *name, *expected;
  };
  const Case cases[] = {{"/x/20240101", "120000-av-1.kmv", "20240101 120000"},
                        {"/x/20380120", "031408.mp4.info", "20380120 031408"},
                        {"/x/21000101", "000001.avi", "21000101 000001"},
                        {"/x", "20240101_120000_1.jpg", "20240101 120000"},
                        {"/x/20240101", "120000.kmv.jpg", ""},
                        {"/x/20240101", "20240101120000.jpg", ""},
                        {"20240101", "120000.kmv", ""},
                        {"/x/20240101", "notes.txt", ""},
                        {"/x/20240101", "12.kmv", ""},
                        {"/x/2024", "120000.kmv", ""}};
  for (const Case& each : cases) {
    long word = 4242;
    struct tm time = {};
    const int result = isPrivFile(each.directory, each.name, word, &time);
    EXPECT_EQ(result, each.expected[0] != '\0' ? 1 : 0) << each.name;
    char text[32] = "";
    const struct tm local = record::LocalTime(record::FromTimeWord(word));
    if (result == 1) std::strftime(text, sizeof text, "%Y%m%d %H%M%S", &local);
    EXPECT_STREQ(text, each.expected) << each.name;
  }
  struct tm start = {};
  start.tm_isdst = 5;
  EXPECT_EQ(GetRecordFileStartTime("/mnt/20240102/030405-av-1.kmv", &start), 0);
  EXPECT_EQ(record::DayDirectory("", start), "/20240102");
  EXPECT_EQ(start.tm_hour * 10000 + start.tm_min * 100 + start.tm_sec, 30405);
  EXPECT_EQ(start.tm_isdst, 5);
  EXPECT_EQ(GetRecordFileStartTime("20240102/030405", &start), 0);
  EXPECT_EQ(GetRecordFileStartTime("/mnt/20240102/notes", &start), -1);
  EXPECT_EQ(GetRecordFileStartTime("/mnt/day/030405", &start), -1);
  EXPECT_TRUE(m_platform.Logged("]sscanf filename != 3, filename = notes"));
  EXPECT_TRUE(m_platform.Logged("]sscanf  dayDir != 3, dayDir = day"));
}

TEST_F(OldRecordsTest, TheListIsTheOldestNewestFirst) {
  for (const char* name :
       {"motion/20240101/100000.kmv", "motion/20240101/090000.kmv", "motion/20240101/110000.kmv"})
    Add(name);
  EXPECT_THAT(Oldest(2), ElementsAre("motion/20240101/100000.kmv", "motion/20240101/090000.kmv"));
  EXPECT_THAT(Oldest(1), ElementsAre("motion/20240101/090000.kmv"));
  EXPECT_THAT(Oldest(0), IsEmpty());
  // Later days are not looked into once there are enough, and those of 2100 are no older ones.
  for (const char* name : {"alarm/20240102/010000.kmv", "manual/21000101/000000.kmv", "alarm/20380201/000000.kmv"})
    Add(name);
  fs::create_directories(m_card + "/schedule/20230101");
  fs::create_directories(m_card + "/schedule/21000102");
  fs::create_directories(m_card + "/system VOLUME information");
  EXPECT_EQ(Oldest(3).size(), 3u);
  EXPECT_FALSE(Has("schedule/20230101"));
  EXPECT_TRUE(Has("schedule/21000102"));
  EXPECT_TRUE(Has("system VOLUME information"));
  EXPECT_THAT(Oldest(6), ElementsAre("manual/21000101/000000.kmv", "alarm/20380201/000000.kmv",
                                     "alarm/20240102/010000.kmv", "motion/20240101/110000.kmv",
                                     "motion/20240101/100000.kmv", "motion/20240101/090000.kmv"));
  Add("notes.txt");  // its last change is its time
  fake::SetChanged(m_card + "/notes.txt", 1);
  EXPECT_EQ(Oldest(7).back(), "notes.txt");
  int stop = 1;
  EXPECT_EQ(FindOldFiles(m_card.data(), 6, &stop), nullptr);
}

// In whatever order a directory gives its entries, and over several directories.
TEST_F(OldRecordsTest, RandomFilesAreKeptLikeASortWould) {
  std::mt19937 random(7);
  Names all;
  for (int n = 0; n < 120; ++n) {
    char name[64];
    std::snprintf(name, sizeof name, "motion/202401%02u/%02u%02u%02u-%d.kmv",
                  static_cast<unsigned>(random() % 4 + 1), static_cast<unsigned>(random() % 24),
                  static_cast<unsigned>(random() % 60), static_cast<unsigned>(random() % 60), n);
    Add(name);
    all.push_back(name);
  }
  std::sort(all.begin(), all.end(),
            [](const std::string& a, const std::string& b) { return a.substr(0, 22) < b.substr(0, 22); });
  for (const unsigned most : {1u, 2u, 17u, 119u, 120u}) {
    OldFileInfo_s* head = nullptr;
    unsigned count = 0;
    for (const char* day : {"04", "02", "01", "03"})
      EXPECT_EQ(scanDir((m_card + "/motion/202401" + day).c_str(), &head, nullptr, most, count, nullptr), 0);
    EXPECT_EQ(count, most);
    Names kept = Take(head);
    std::reverse(kept.begin(), kept.end());
    EXPECT_EQ(kept, Names(all.begin(), all.begin() + most));
  }
}

TEST_F(OldRecordsTest, DirectoriesAreListedOldestFirst) {
  for (const char* name : {"20240103/a/20240102/f", "20240101/f"}) Add(name);
  fs::create_symlink("/", m_card + "/20230101");
  // A directory without a day in its name has the time of its last change, which is now.
  EXPECT_THAT(Directories(m_card), ElementsAre("20240101", "20240103/a/20240102", "20240103", "20240103/a"));
  for (int n = 0; n < 20; ++n) fs::create_directories(m_card + "/20240103/a/2023" + std::to_string(1001 + n));
  const Names many = Directories(m_card + "/20240103");
  ASSERT_EQ(many.size(), 22u);
  EXPECT_EQ(many[19], "20240103/a/20231020");
  Add("file");
  OldFileInfo_s* head = nullptr;
  EXPECT_EQ(findAllDirs((m_card + "/none").c_str(), &head, nullptr, 0), 0);
  EXPECT_THAT(m_platform.CallsTo("mysystem"), IsEmpty());
  EXPECT_EQ(findAllDirs((m_card + "/file").c_str(), &head, nullptr, 0), -1);
  EXPECT_THAT(m_platform.CallsTo("mysystem"), ElementsAre("mysystem(touch /mnt/nand/opendirfail.flag)"));
}

TEST_F(OldRecordsTest, DayDirectoriesGoUntilSoManyAreLeft) {
  for (int day = 20240101; day <= 20240110; ++day) {
    Add("motion/" + std::to_string(day) + "/000000-av-1.kmv");
    Add("other/" + std::to_string(day) + "/f");
  }
  for (const char* name : {"motion/2024010/f", "motion/backup/f", "motion/20240101x/f"}) Add(name);
  std::string kind = m_card + "/motion";
  int stop = 1;
  EXPECT_EQ(DelOldDayDirs(kind.data(), 8, &stop), 0);
  EXPECT_TRUE(Has("motion/20240101"));
  EXPECT_EQ(DelOldDayDirs(kind.data(), 8, nullptr), 0);
  EXPECT_FALSE(Has("motion/20240101") || Has("motion/20240102"));
  EXPECT_TRUE(Has("motion/20240103"));
  EXPECT_EQ(m_platform.CountLogged("]remove subdir path="), 2);
  std::string other = m_card + "/other";
  EXPECT_EQ(DelOldDayDirs(other.data(), 0, nullptr), 0);
  EXPECT_EQ(DelOldDayDirs(kind.data(), 0, nullptr), 0);
  EXPECT_FALSE(Has("motion/20240110"));
  EXPECT_TRUE(Has("other/20240101") && Has("motion/2024010") && Has("motion/backup") && Has("motion/20240101x"));
}

TEST_F(OldRecordsTest, TheFreeListIsSortedAndHasOneMore) {
  Add("alarm/20240102/07.kmv");
  for (const time_t first = time(nullptr); time(nullptr) == first;) usleep(1000);  // times are whole seconds
  for (const char* name :
       {"manual/20240101/08.kmv", "manual/20240103/09.kmv", "manual/loose.kmv", "motion/a/10.kmv"})
    Add(name);
  fs::create_directories(m_card + "/manual/20240102");
  fs::create_directories(m_card + "/manual/20240131");  // today's
  const Names oldest = {"alarm/20240102/07.kmv", "manual/20240101/08.kmv", "manual/20240103/09.kmv",
                        "manual/loose.kmv", "motion/a/10.kmv"};
  EXPECT_EQ(FreeList(2), Names(oldest.begin(), oldest.begin() + 3));
  EXPECT_EQ(m_platform.CountLogged("]" + m_card + "/manual/20240101/08.kmv"), 1);
  EXPECT_EQ(m_platform.CountLogged("]" + m_card + "/manual/20240103/09.kmv"), 0);
  EXPECT_EQ(FreeList(0), Names(oldest.begin(), oldest.begin() + 1));
  EXPECT_EQ(FreeList(100), oldest);
  EXPECT_FALSE(Has("manual/20240102"));
  EXPECT_TRUE(Has("manual/20240131"));
}

TEST_F(OldRecordsTest, WhatIsUsedIsNeitherListedNorDeleted) {
  recordtest::ProbeTask task(recordtest::UsualParam(), recordtest::UsualConfig());
  const std::string day = m_card + "/schedule/20240131";
  const auto path = [&](const char* name) { return day + "/" + name; };
  for (const char* name : {"schedule/20240131/081500-av-1.kmv", "schedule/20240131/081500-av-1.kmv.info",
                           "schedule/20240131/081000-av-1.kmv", "schedule/20240131/081000-av-1.kmv.info",
                           "schedule/20240131/080000-av-1.kmv", "schedule/20240131/rec_type.idx"})
    Add(name);
  task.SetStorageBase(day.c_str());
  task.SetLocalFileName("081500-av-1.kmv");
  TaskManagerAddTask(&task);
  m_card += "/";
  EXPECT_EQ(FreeList(100).size(), 5u);
  EXPECT_EQ(m_platform.CountLogged("081500-av-1.kmv is using, can not be removed."), 1);
  m_card.pop_back();

  EXPECT_EQ(DeleteFreeFile(path("081500-av-1.kmv").c_str()), DELETE_IN_USE);
  EXPECT_EQ(DeleteFreeFile(path("/081500-av-1.kmv.info").c_str()), DELETE_IN_USE);
  EXPECT_EQ(DeleteFreeFile(path("rec_type.idx").c_str()), DELETE_IN_USE);
  TaskManagerSetFileUsing(path("080000-av-1.kmv").c_str());
  EXPECT_EQ(DeleteFreeFile(path("080000-av-1.kmv").c_str()), DELETE_IN_USE);
  TaskManagerSetFileUsing("");
  EXPECT_EQ(fs::exists(path("080000-av-1.kmv")), true);
  // Another process: it holds the lock file, or just the file.
  struct tm date = {};
  record::ScanDay("20240131", date);
  task.CreateLockFile(const_cast<char*>("081000-av-1.kmv"), &date);
  EXPECT_EQ(DeleteFreeFile(path("081000-av-1.kmv").c_str()), DELETE_IN_USE);
  const std::string lock = record::LockFilePath("20240131/081000-av-1.kmv");
  task.RemoveLockFile();
  fake::WriteFile(lock, "");  // left by a crash
  const int writer = open(path("081000-av-1.kmv").c_str(), O_WRONLY);
  EXPECT_EQ(DeleteFreeFile(path("081000-av-1.kmv").c_str()), DELETE_IN_USE);
  close(writer);
  EXPECT_EQ(DeleteFreeFile(path("081000-av-1.kmv").c_str()), DELETE_DONE);
  EXPECT_FALSE(fs::exists(path("081000-av-1.kmv")) || fs::exists(path("081000-av-1.kmv.info")) ||
               fs::exists(lock));
  EXPECT_EQ(DeleteFreeFile(path("081000-av-1.kmv").c_str()), DELETE_DONE);
  EXPECT_EQ(DeleteFreeFile(day.c_str()), DELETE_FAILED);
  EXPECT_EQ(fs::exists(path("081500-av-1.kmv")), true);
  TaskManagerRemoveTask(&task);
}

TEST_F(OldRecordsTest, AClockSteppedBackOverMidnightTakesNoDirectoryAway) {
  recordtest::ProbeTask task(recordtest::UsualParam(), recordtest::UsualConfig());
  task.SetStorageBase((m_card + "/schedule/20240131").c_str());  // for its first file, which is not there yet
  TaskManagerAddTask(&task);
  m_clock.StepWall(-86400000);
  for (const char* day : {"/schedule/20240131", "/schedule/20240130", "/schedule/20240201"})
    fs::create_directories(m_card + day);
  const std::string card = m_card + "//";
  std::list<_VrRecordFileInfo> files;
  EXPECT_EQ(GetOldFileList(card.c_str(), files, 5), 0);
  EXPECT_TRUE(Has("schedule/20240131") && Has("schedule/20240130"));
  EXPECT_FALSE(Has("schedule/20240201"));
  EXPECT_EQ(FindOldFiles(const_cast<char*>(card.c_str()), 5, nullptr), nullptr);
  EXPECT_TRUE(Has("schedule/20240131"));
  EXPECT_FALSE(Has("schedule/20240130"));
  TaskManagerRemoveTask(&task);
}

// Nothing is run, nothing outside the tree is touched, no link is followed, no depth is too deep.
TEST_F(OldRecordsTest, AHostileCard) {
  const std::string outside = Path("/outside");
  fake::WriteFile(outside + "/20200101/000000-av-1.kmv", "precious");
  fs::create_directories(outside + "/20200102");
  const std::string longName(255, 'n');
  const Names names = {"1 2 3;id", "$(reboot)", "new\nline", "'quotes\"", "..x", "-rf", "20230101", longName};
  for (const std::string& name : names) {
    const fs::path kind = fs::path(m_card) / "motion";
    const fs::path day = kind / "20240101" / name;
    fs::create_directories(day / longName);
    fs::create_symlink("/", day / "root");
    fs::create_symlink(outside, day / "20200101");
    fake::WriteFile(kind / name / (name + ".kmv"), "x");
  }
  fs::create_symlink("..", m_card + "/motion/20240101/loop");
  fs::create_symlink(outside, m_card + "/motion/20240102");
  fs::create_symlink(outside, m_card + "/alarm");
  fs::create_symlink(outside, m_card + "/20220101");
  int deep = open((m_card + "/motion/20240101").c_str(), O_RDONLY | O_DIRECTORY);
  for (int level = 0; level < 2500; ++level) {  // deeper than paths can be and than descriptors go
    ASSERT_EQ(mkdirat(deep, "d", 0700), 0);
    const int next = openat(deep, "d", O_RDONLY | O_DIRECTORY);
    close(deep);
    deep = next;
  }
  close(deep);

  const std::string noSideFile = "120000-" + std::string(244, 'a') + ".kmv";
  Add("manual/20240101/" + noSideFile);
  EXPECT_EQ(DeleteFreeFile((m_card + "/manual/20240101/" + noSideFile).c_str()), DELETE_DONE);
  EXPECT_FALSE(Has("manual/20240101/" + noSideFile));

  for (const std::string& path : Oldest(1000)) EXPECT_EQ(path.find("20200101/"), std::string::npos) << path;
  for (const std::string& path : FreeList(1000)) EXPECT_EQ(path.find("20200101/"), std::string::npos) << path;
  std::string alarm = m_card + "/alarm";
  DelOldDayDirs(alarm.data(), 0, nullptr);
  EXPECT_EQ(DeleteFreeFile((m_card + "/alarm/000000-av-1.kmv").c_str()), DELETE_FAILED);
  EXPECT_EQ(DeleteFreeFile((m_card + "/20220101").c_str()), DELETE_DONE);
  std::string kind = m_card + "/motion";
  DelOldDayDirs(kind.data(), 0, nullptr);
  EXPECT_FALSE(Has("motion/20240101") || Has("motion/20230101") || Has("20220101"));
  EXPECT_TRUE(Has("motion/20240102") && Has("motion/$(reboot)"));
  EXPECT_EQ(fake::ReadFile(outside + "/20200101/000000-av-1.kmv"), "precious");
  EXPECT_TRUE(fs::exists(outside + "/20200102"));
  for (const std::string& call : m_platform.Calls()) EXPECT_EQ(call, "mysystem(touch /mnt/nand/opendirfail.flag)");
}

}  // namespace
