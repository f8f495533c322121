// The record index over a tree that nobody has tidied.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "base/clock.h"
#include "record/storage.h"
#include "record_host/host.h"
#include "tests/host/support/clips.h"

namespace record {
namespace {

class RecordIndexTest : public testing::Test {
 protected:
  RecordIndexTest() { SetDeviceRoot(m_directory.Path().c_str()); }
  ~RecordIndexTest() override { SetDeviceRoot(""); }

  void Touch(const std::string& devicePath) { WriteFile(DevicePath(devicePath), "x"); }

  static std::vector<std::string> Query(const struct tm& begin, const struct tm& end) {
    REPLAY_QUERY_CONDITION condition = {-1, begin, end, {-1, -1, -1, -1}};
    std::vector<std::string> paths;
    for (const REPLAY_QUERY_RESULT* at = QueryRecordFile(&condition); at != nullptr; at = at->next) {
      paths.push_back(std::string(at->szRootPath) + "/" + at->szFileName);
    }
    return paths;
  }
  static std::vector<std::string> Day(int year, int month, int day) {
    return Query(CalendarTime(year, month, day, 0, 0, 0), CalendarTime(year, month, day, 23, 59, 59));
  }

  const TempDir m_directory;
};

using Paths = std::vector<std::string>;

TEST_F(RecordIndexTest, NewestFirstOverMediaAndKinds) {
  EXPECT_TRUE(Day(2024, 1, 31).empty());
  char serial[32];
  GetSN(serial, sizeof(serial));
  const std::string network = std::string("/tmp/network/") + serial;
  Touch("/mnt/mmc0/schedule/20240131/081500-av-1.kmv");
  Touch("/mnt/mmc0/schedule/20240131/081500-av-1.kmv.info");
  Touch("/mnt/mmc0/alarm/20240131/100000-vv-2.mp4");
  Touch("/mnt/mmc0/manual/20240131/081500-av-1.avi");
  Touch("/mnt/usb/motion/20240131/235959-av-1.kmv");
  Touch(network + "/schedule/20240131/000000-av-1.kmv");
  Touch(network + "/manual/20240131/100000-av-1.kmv");
  Touch("/mnt/mmc0/schedule/20240201/000000-av-1.kmv");
  Touch("/tmp/network/OTHER/schedule/20240131/000001-av-1.kmv");
  EXPECT_EQ((Paths{
                "/mnt/usb/motion/20240131/235959-av-1.kmv",
                "/mnt/mmc0/alarm/20240131/100000-vv-2.mp4",
                network + "/manual/20240131/100000-av-1.kmv",
                "/mnt/mmc0/manual/20240131/081500-av-1.avi",
                "/mnt/mmc0/schedule/20240131/081500-av-1.kmv",
                network + "/schedule/20240131/000000-av-1.kmv",
            }),
            Day(2024, 1, 31));
}

TEST_F(RecordIndexTest, SpansAreInclusiveAndCrossMonths) {
  for (const char* path : {"20240228/235959-av-1.kmv", "20240229/120000-av-1.kmv", "20240301/000000-av-1.kmv",
                           "20241231/230000-av-1.kmv", "20250101/010000-av-1.kmv"}) {
    Touch(std::string("/mnt/mmc1/schedule/") + path);
  }
  EXPECT_EQ(3u, Query(CalendarTime(2024, 2, 28, 23, 59, 59), CalendarTime(2024, 3, 1, 0, 0, 0)).size());
  EXPECT_EQ(1u, Query(CalendarTime(2024, 2, 29, 0, 0, 0), CalendarTime(2024, 2, 29, 12, 0, 0)).size());
  EXPECT_EQ(0u, Query(CalendarTime(2024, 2, 29, 12, 0, 1), CalendarTime(2024, 2, 29, 23, 0, 0)).size());
  const Paths overNewYear = Query(CalendarTime(2024, 12, 31, 0, 0, 0), CalendarTime(2025, 1, 1, 23, 0, 0));
  ASSERT_EQ(2u, overNewYear.size());
  EXPECT_EQ("/mnt/mmc1/schedule/20250101/010000-av-1.kmv", overNewYear[0]);
  EXPECT_EQ(0u, Query(CalendarTime(2024, 3, 1, 0, 0, 0), CalendarTime(2024, 2, 1, 0, 0, 0)).size())
      << "ends before it begins";
  EXPECT_EQ(0u, Query(CalendarTime(2024, 13, 1, 0, 0, 0), CalendarTime(2024, 14, 1, 0, 0, 0)).size());
  struct tm wild = CalendarTime(2024, 1, 1, 0, 0, 0);
  wild.tm_mday = -2000000000;
  EXPECT_EQ(0u, Query(wild, CalendarTime(2024, 12, 1, 0, 0, 0)).size());
  EXPECT_EQ(nullptr, QueryRecordFile(nullptr));
}

TEST_F(RecordIndexTest, HostileNames) {
  const std::string day = "/mnt/mmc0/schedule/20240131/";
  const std::string longest = "120000-" + std::string(35, 'x') + ".kmv";  // 46 bytes: the field is full
  Touch(day + longest);
  Touch(day + "y" + longest);
  Touch(day + longest + "z");  // one too long
  Touch(day + "12000-av-1.kmv");
  Touch(day + "abcdef-av-1.kmv");
  Touch(day + "120000-av-1.txt");
  Touch(day + "120000");
  Touch(day + ".kmv");
  Touch(day + "rec_type.idx");
  Touch(day + "130000-\xff\n;rm -rf.kmv");
  Touch(day + "140000-av-1.kmv.tmp");
  Touch(day + "150000/inside.kmv");
  std::filesystem::create_directories(DevicePath(day + "160000-av-1.kmv"));
  ASSERT_EQ(0, symlink("/etc/passwd", DevicePath(day + "170000-av-1.kmv").c_str()));
  ASSERT_EQ(0, mkfifo(DevicePath(day + "180000-av-1.kmv").c_str(), 0600));
  EXPECT_EQ((Paths{day + "140000-av-1.kmv.tmp", day + "130000-\xff\n;rm -rf.kmv", day + longest}),
            Day(2024, 1, 31));
  // A day directory that is a link leads off the card.
  std::filesystem::rename(DevicePath("/mnt/mmc0/schedule/20240131"), m_directory.Path() + "/elsewhere");
  ASSERT_EQ(
      0, symlink((m_directory.Path() + "/elsewhere").c_str(), DevicePath("/mnt/mmc0/schedule/20240131").c_str()));
  EXPECT_TRUE(Day(2024, 1, 31).empty());
}

TEST_F(RecordIndexTest, ResultsBelongToTheThreadThatAsked) {
  Touch("/mnt/mmc0/schedule/20240131/081500-av-1.kmv");
  REPLAY_QUERY_CONDITION condition = {
      -1, CalendarTime(2024, 1, 31, 0, 0, 0), CalendarTime(2024, 1, 31, 23, 59, 59), {-1, -1, -1, -1}};
  const REPLAY_QUERY_RESULT* mine = QueryRecordFile(&condition);
  ASSERT_NE(nullptr, mine);
  std::thread([] { EXPECT_TRUE(Day(1999, 1, 1).empty()); }).join();
  EXPECT_STREQ("20240131/081500-av-1.kmv", mine->szFileName);
  EXPECT_STREQ("/mnt/mmc0/schedule", mine->szRootPath);
}

}  // namespace
}  // namespace record
