// recordctl days, minutes, find and prune over a tree that the test has made.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/file.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <ctime>

#include "record/types.h"
#include "tests/ctl/ctl_run.h"

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;

namespace ctl {
namespace {

constexpr size_t kMinutes = 1440;

// "YYYYMMDD" of a day so many days ago.
std::string DaysAgo(int days) {
  const time_t now = time(nullptr);
  struct tm day = {};
  localtime_r(&now, &day);
  day.tm_mday -= days;
  day.tm_isdst = -1;
  mktime(&day);
  char name[16];
  std::strftime(name, sizeof name, "%Y%m%d", &day);
  return name;
}

class KeepTest : public CtlTest {
 protected:
  void SetUp() override {
    CtlTest::SetUp();
    fs::create_directories(m_root / "tmp");
  }

  fs::path Day(const std::string& kind, const std::string& day) const { return m_root / "mnt/mmc0" / kind / day; }

  // A minute at each of these times, with its side file and its mark in the day's index.
  void Record(const std::string& kind, const std::string& day, const std::vector<std::string>& times) const {
    const fs::path directory = Day(kind, day);
    fs::create_directories(directory);
    std::string index(kMinutes, 'C');
    for (const std::string& time : times) {
      RecordInfoStruct info = {};
      info.startSeconds = 1000;
      info.endSeconds = 1060;
      WriteFile(directory / (time + "-av-1.kmv"), std::string(10000, 'x'));
      WriteFile(directory / (time + "-av-1.kmv.info"), std::string(reinterpret_cast<char*>(&info), sizeof info));
      index[std::stoul(time.substr(0, 2)) * 60 + std::stoul(time.substr(2, 2))] = 'A';
    }
    WriteFile(directory / "rec_type.idx", index);
    WriteFile(directory / "recordfiles.txt", "names");
  }

  std::vector<std::string> Names() const {
    std::vector<std::string> names;
    for (const fs::path& record : Records())
      names.push_back(record.parent_path().filename().string() + "/" + record.filename().string().substr(0, 6));
    return names;
  }
  std::vector<Json> Prune(Arguments arguments, int code = 0) const {
    arguments.insert(arguments.begin(), {"--json", "prune"});
    const Result result = Run(arguments);
    EXPECT_EQ(result.code, code) << result.err;
    return result.Objects();
  }
};

TEST_F(KeepTest, DaysMinutesAndMoments) {
  Record("schedule", "20240131", {"081500", "093000"});
  Record("motion", "20240229", {"235900"});
  const Result days = Run({"days"});
  EXPECT_THAT(days.out, HasSubstr("2024-01\nMo Tu We Th Fr Sa Su\n .  .  .  .  .  .  .\n"));
  EXPECT_THAT(days.out, HasSubstr("\n .  . 31\n\n2024-02\n"));
  EXPECT_EQ(Run({"--json", "days"}).out, "{\"date\":\"2024-01-31\"}\n{\"date\":\"2024-02-29\"}\n");
  // Where standard time is the summer's.
  EXPECT_EQ(Shell("TZ=IST-1GMT0,M10.5.0,M3.5.0/1 $CTL --json days | head -1").out, "{\"date\":\"2024-01-31\"}\n");

  const Result minutes = Run({"minutes", "--date", "2024-01-31"});
  EXPECT_THAT(minutes.out, HasSubstr("\n08 ............... A.............. ..............."));
  EXPECT_THAT(minutes.out, HasSubstr("\nminutes: . nothing 1438, A schedule or manual 2\n"));
  EXPECT_EQ(minutes.out.find('\x1b'), std::string::npos);
  const std::string map = Run({"--json", "minutes", "--date", "2024-01-31"}).Objects().at(0)["minutes"];
  EXPECT_EQ(map.find('A'), 8u * 60 + 15);
  const std::string png = (m_directory / "day.png").string();
  EXPECT_EQ(Run({"minutes", "--date", "2024-01-31", "--png", png}).code, 0);
  // The cell of 08:15 is green, its neighbours are grey.
  const std::string crop =
      "ffmpeg -nostdin -v error -i " + png + " -vf crop=1:1:" + std::to_string(2 + 15 * 12 + 2 + 5);
  const std::string pixel =
      Shell(crop + ":" + std::to_string(2 + 8 * 16 + 5) + " -f rawvideo -pix_fmt rgb24 -").out;
  EXPECT_EQ(pixel, "\x2e\xa0\x43");
  EXPECT_EQ(Run({"minutes", "--date", "2024-01-30"}).code, 1);

  const std::string second = (Day("schedule", "20240131") / "093000-av-1.kmv").string();
  EXPECT_EQ(Run({"find", "--at", "2024-01-31 09:30:20"}).out, second + "  from second 20 on\n");
  EXPECT_EQ(Run({"--json", "find", "--at", "2024-01-31T08:20:00"}).Objects(),
            std::vector<Json>({{{"path", second}, {"offset", 0}}}));
  EXPECT_EQ(Run({"find", "--at", "2024-01-31 08:20:00", "--stream", "3"}).code, 1);
  EXPECT_EQ(Run({"find", "--at", "2024-01-31 08:20:00", "--sensor", "0"}).err,
            "recordctl: no recording at or after 2024-01-31 08:20:00\n");
}

TEST_F(KeepTest, TheNewestStayAndTheirDaysAreSetRight) {
  Record("alarm", "20240101", {"010000"});
  Record("schedule", "20240102", {"010000", "030000"});
  Record("motion", "20240102", {"020000"});
  WriteFile(Day("schedule", "20240102") / "holiday.jpg", "a photo");
  fs::create_directories(Day("schedule", "1 2 3;id"));
  fs::create_directory_symlink(Day("motion", "20240102"), Day("schedule", "20230101"));
  const std::vector<std::string> before = Names();
  std::vector<Json> told = Prune({"--keep-newest", "2", "--dry-run"});
  EXPECT_EQ(Names(), before);
  ASSERT_EQ(told.size(), 3u);
  EXPECT_EQ(told[2]["deleted"], 2);
  EXPECT_EQ(told[2]["other_files"], 3);
  EXPECT_THAT(told[2]["others"][2], HasSubstr("holiday.jpg"));

  told = Prune({"--keep-newest", "2"});
  EXPECT_THAT(told[0]["path"], HasSubstr("alarm/20240101/010000-av-1.kmv"));
  EXPECT_EQ(told[0]["reason"], "not one of the newest 2");
  EXPECT_THAT(Names(), ElementsAre("20240102/020000", "20240102/030000"));
  EXPECT_FALSE(fs::exists(Day("alarm", "20240101")));
  EXPECT_TRUE(fs::exists(Day("schedule", "20240102") / "holiday.jpg"));
  EXPECT_EQ(ReadFile(Day("schedule", "20240102") / "rec_type.idx").find('A'), 180u);
  EXPECT_EQ(ReadFile(Day("motion", "20240102") / "rec_type.idx").find('A'), 120u);
}

TEST_F(KeepTest, DaysAreCountedFromToday) {
  for (const int days : {0, 1, 2, 3, 30}) Record("manual", DaysAgo(days), {"000000"});
  // Of the owner's own files, in days that go and in days that stay, none goes and none is left untold.
  for (const char* name : {"20260504_family.mp4", "123456.mp4.bak"})
    WriteFile(Day("manual", DaysAgo(30)) / name, "x");
  for (int n = 10; n < 35; ++n) WriteFile(Day("manual", DaysAgo(1)) / (std::to_string(n) + ".txt"), "x");
  const Json sum = Prune({"--keep-days", "2"}).back();
  EXPECT_EQ(sum["deleted"], 3);
  EXPECT_EQ(sum["other_files"], 27);
  ASSERT_EQ(sum["others"].size(), 27u);
  EXPECT_THAT(sum["others"][1], HasSubstr("20260504_family.mp4"));
  fs::remove_all(Day("manual", DaysAgo(30)) / "20260504_family.mp4");
  EXPECT_THAT(Names(), ElementsAre(DaysAgo(1) + "/000000", DaysAgo(0) + "/000000"));
}

TEST_F(KeepTest, SpaceIsMadeAndWhatIsRecordedStays) {
  Record("manual", "20240101", {"010000", "020000"});
  Record("manual", "20240102", {"010000"});
  const int lock = open((m_root / "tmp/20240101010000-av-1.kmv").c_str(), O_RDWR | O_CREAT, 0);
  ASSERT_EQ(flock(lock, LOCK_EX), 0);
  struct statvfs space;
  ASSERT_EQ(statvfs(m_root.c_str(), &space), 0);
  EXPECT_EQ(Prune({"--free", "1"}).back()["deleted"], 0);
  const std::vector<Json> pretended = Prune({"--keep-newest", "0", "--dry-run"});
  EXPECT_EQ(pretended[0]["action"], "in use");
  EXPECT_EQ(pretended.back()["deleted"], 2);
  // More than the file system has: nothing goes for a goal that cannot be met.
  const auto all = static_cast<unsigned long long>(space.f_blocks) * space.f_frsize / 1048576 + 1;
  EXPECT_TRUE(Prune({"--free", std::to_string(all), "--dry-run"}, 1).empty());
  EXPECT_TRUE(Prune({"--free", std::to_string(all)}, 1).empty());
  EXPECT_EQ(Names().size(), 3u);
  // Pictures go in their turn, those beside a record in use, too, and count for no record.
  const auto pictures = [this] {
    return fs::exists(Day("manual", "20240101") / "20240101_015900_1.jpg") * 2 +
           fs::exists(Day("manual", "20240101") / "20240101_235900_12.jpg");
  };
  for (const char* name : {"20240101_015900_1.jpg", "20240101_235900_12.jpg", "20240101_235900_012.jpg"})
    WriteFile(Day("manual", "20240101") / name, "x");
  EXPECT_EQ(Prune({"--keep-newest", "1"}).back()["deleted"], 2);
  EXPECT_EQ(pictures(), 1);
  EXPECT_EQ(Prune({"--keep-newest", "0", "--dry-run"}).back()["deleted"], 2);
  const std::vector<Json> told = Prune({"--keep-newest", "0"});
  EXPECT_EQ(pictures(), 0);
  EXPECT_TRUE(fs::exists(Day("manual", "20240101") / "20240101_235900_012.jpg")) << "somebody's own";
  EXPECT_THAT(Names(), ElementsAre("20240101/010000"));
  EXPECT_EQ(told[0]["action"], "in use");
  EXPECT_EQ(told.back()["deleted"], 2);
  close(lock);
}

// A card that can have 507 MB free, and a small one that holds the older recordings.
TEST_F(KeepTest, NothingGoesWhereItWouldNotDo) {
  const std::string cards = "cd " + m_root.string() + " && mkdir -p mnt/mmc0 mnt/mmc1 && ";
  if (Shell(cards + "mount -t tmpfs -o size=510m none mnt/mmc0 && mount -t tmpfs -o size=90m none mnt/mmc1")
          .code != 0)
    GTEST_SKIP() << "mounting is not allowed here";
  Record("../mmc1/manual", "20240101", {"010000", "020000", "030000"});
  Record("manual", "20240102", {"010000", "020000", "030000"});
  for (const auto& day : {Day("../mmc1/manual", "20240101"), Day("manual", "20240102")}) {
    for (const char* name : {"010000-av-1.kmv", "020000-av-1.kmv"})
      WriteFile(day / name, std::string(5 << 20, 'x'));
  }
  const auto record = [this](const char* least) {
    return Run({"record", "--input", "/nowhere", "--min-free", least}).err;  // comes to the input last
  };
  EXPECT_THAT(record("90000000"), HasSubstr("cannot have 90000000 MB free"));
  EXPECT_TRUE(Prune({"--free", "300"}, 1).empty());  // the large card could
  EXPECT_EQ(Names().size(), 6u);
  EXPECT_THAT(record("503"), HasSubstr("less than 503 MB free: deleted"));
  EXPECT_THAT(Names(), ElementsAre("20240102/020000", "20240102/030000", "20240101/010000", "20240101/020000",
                                   "20240101/030000"));
  EXPECT_EQ(Prune({"--free", "83"}).back()["deleted"], 1);
  EXPECT_EQ(Names().size(), 4u);
  EXPECT_EQ(Shell("umount " + m_root.string() + "/mnt/mmc*").code, 0);
}

}  // namespace
}  // namespace ctl
