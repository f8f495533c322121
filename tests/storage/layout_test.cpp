#include "storage/layout.h"

#include <climits>

#include "base/clock.h"
#include "tests/support/device_test.h"

namespace record {
namespace {

class LayoutTest : public fake::DeviceTest {};

struct NameCase {
  struct tm start;
  const char* tag;
  int stream;
  const char* extension;
  const char* dayAndName;
  const char* lockFile;
};

TEST_F(LayoutTest, NamesAreMadeAndTakenApartAlike) {
  const NameCase cases[] = {
      {record::CalendarTime(2024, 1, 31, 8, 15, 0), "av", 0, ".kmv", "20240131/081500-av-1.kmv",
       "/tmp/20240131081500-av-1.kmv"},
      {record::CalendarTime(2024, 12, 1, 0, 0, 0), "vv", 1, ".avi", "20241201/000000-vv-2.avi",
       "/tmp/20241201000000-vv-2.avi"},
      {record::CalendarTime(1999, 2, 3, 23, 59, 59), "sv", 9, ".mp4", "19990203/235959-sv-10.mp4",
       "/tmp/19990203235959-sv-10.mp4"},
  };
  for (const NameCase& each : cases) {
    SCOPED_TRACE(each.dayAndName);
    const std::string name = RecordFileName(each.start, each.tag, each.stream, each.extension);
    EXPECT_EQ(DayDirectory("/mnt/x", each.start) + "/" + name, std::string("/mnt/x/") + each.dayAndName);
    EXPECT_TRUE(IsRecordFileName(name.c_str()) && IsRecordingName(name.c_str()));

    const NameTime time = ParseNameTime(each.dayAndName);
    EXPECT_EQ(time.year, each.start.tm_year + 1900);
    EXPECT_EQ(time.month, each.start.tm_mon + 1);
    EXPECT_EQ(time.day, each.start.tm_mday);
    EXPECT_EQ(time.SecondOfDay(),
              static_cast<unsigned>(each.start.tm_hour * 3600 + each.start.tm_min * 60 + each.start.tm_sec));

    // The writer makes the lock file from a date and a name, the catalogue from the listed name.
    EXPECT_EQ(LockFilePath(each.start, name.c_str()), Path(each.lockFile));
    EXPECT_EQ(LockFilePath(each.dayAndName), Path(each.lockFile));
  }
}

TEST_F(LayoutTest, HostileNamesGiveNumbersAndNothingElse) {
  struct Case {
    std::string name;
    int year;
    unsigned second;
  };
  const Case cases[] = {
      {"", 0, 0},
      {"2024", 2024, 0},
      {"20240131", 2024, 0},
      {"20240131/", 2024, 0},
      {"20240131/08", 2024, 28800},
      {"20240131/081", 2024, 28860},
      {"20x40131/081500", 20, 29700},
      {"-0240131/-1-1-1", 0, 0},
      {"    0131/ 8 5 0", 0, 0},
      {"99999999/999999", 9999, 99 * 3600 + 99 * 60 + 99},
      {"\xff\xff\xff\xff\xff\xff\xff\xff/\xb2\xb2\xb2\xb2\xb2\xb2", 0, 0},
      {std::string(100000, '7'), 7777, 77 * 3600 + 77 * 60 + 77},
  };
  for (const Case& each : cases) {
    const NameTime time = ParseNameTime(each.name.c_str());
    EXPECT_EQ(time.year, each.year) << each.name.substr(0, 40);
    EXPECT_EQ(time.SecondOfDay(), each.second) << each.name.substr(0, 40);
  }
}

TEST_F(LayoutTest, ListedNamesOfAnyShapeGiveALockFileBelowTmp) {
  EXPECT_EQ(LockFilePath("a/b/c"), Path("/tmp/a/bc"));
  EXPECT_EQ(LockFilePath("noslash.kmv"), Path("/tmp/noslash.kmv"));
  EXPECT_EQ(LockFilePath(""), Path("/tmp/"));
  // 127 characters count, those of "/tmp/" among them; the slash is removed after the cut.
  EXPECT_EQ(LockFilePath(std::string(300, 'n').c_str()), Path("/tmp/" + std::string(122, 'n')));
  EXPECT_EQ(LockFilePath(("d/" + std::string(300, 'n')).c_str()), Path("/tmp/d" + std::string(120, 'n')));
  EXPECT_EQ(LockFilePath((std::string(122, 'd') + "/name").c_str()), Path("/tmp/" + std::string(122, 'd')));
}

TEST_F(LayoutTest, EveryKindHasItsDirectoryAndItsName) {
  struct Case {
    int kind;
    const char* directory;
    const char* name;
  };
  const Case cases[] = {
      {1, "/schedule", "sched"},     {10, "/schedule", "sched"}, {2, "/manual", "manual"},
      {11, "/manual", "manual"},     {3, "/motion", "motion"},   {12, "/motion", "motion"},
      {4, "/alarm", "alarm"},        {13, "/alarm", "alarm"},    {0, "/alarm", "motion"},
      {5, "/alarm", "motion"},       {7, "/alarm", "motion"},    {9, "/alarm", "motion"},
      {14, "/alarm", "motion"},      {-1, "/alarm", "motion"},   {-8, "/alarm", "motion"},
      {INT_MIN, "/alarm", "motion"}, {22, "/alarm", "motion"},   {99, "/alarm", "motion"},
      {INT_MAX, "/alarm", "motion"},
  };
  for (const Case& each : cases) {
    EXPECT_STREQ(KindDirectory(each.kind), each.directory) << each.kind;
    EXPECT_STREQ(KindTaskName(each.kind), each.name) << each.kind;
  }
}

TEST_F(LayoutTest, OnlyNamesThatTheLibraryGivesAreThoseOfRecordings) {
  const char* const others[] = {"",
                                "20260504_family.mp4",
                                "123456.mp4.bak",
                                "123456.mp4",
                                "081500-av-1.kmv.info",
                                "081500-av-1.kmv ",
                                " 81500-av-1.kmv",
                                "081500-av-01.kmv",
                                "081500-av-0.kmv",
                                "081500-av--1.kmv",
                                "081500-av-1kmv",
                                "081500-av-1.txt",
                                "081500-va-1.kmv",
                                "081500-a-1.kmv",
                                "240000-av-1.kmv",
                                "086000-av-1.kmv",
                                "-10000-av-1.kmv",
                                "081500-av-99999999999.kmv",
                                "081500-av-1.mp4.part",
                                "20240131_081500_1.jpg"};
  for (const char* name : others) EXPECT_FALSE(IsRecordingName(name)) << name;
}

}  // namespace
}  // namespace record
