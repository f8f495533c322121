#include "record/lookups.h"

#include <ctime>
#include <filesystem>
#include <random>

#include "base/time_word.h"
#include "tests/query/catalogue_records.h"

namespace catalogue {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

constexpr int kMinutes = 1440;

class QuestionsTest : public CatalogueTest {
 protected:
  // "<name> +<offset>" of the file found; "" when there is none, and the outputs are as they were.
  std::string Answer(int result, const std::string& path, unsigned offset) const {
    if (result == 0) return path.substr(Path(kRoot).size() + 1 + 9) + " +" + std::to_string(offset);
    EXPECT_EQ(result, -1);
    EXPECT_TRUE(path == "before" && offset == 77);
    return "";
  }
  template <typename Lookup>
  std::string AnswerOf(const Lookup& lookup) const {
    std::string path = "before";
    unsigned offset = 77;
    const int result = lookup(path, offset);
    return Answer(result, path, offset);
  }
  std::string At(int hour, int minute, int second = 0) {
    return AnswerOf([=](std::string& path, unsigned& offset) {
      return GetRecordFileAndOffset(2024, 1, 30, hour, minute, second, path, offset);
    });
  }
  std::string AtStream(int stream, int hour, int minute, int second = 0) {
    return AnswerOf([=](std::string& path, unsigned& offset) {
      return GetRecordFileAndOffset_by_streamIdx(2024, 1, 30, hour, minute, second, path, offset, stream);
    });
  }
  std::string AtSensor(int sensor, int hour, int minute) {
    return AnswerOf([=](std::string& path, unsigned& offset) {
      return GetRecordFileAndOffsetBySensorId(2024, 1, 30, hour, minute, 0, sensor, path, offset);
    });
  }
  void Index(const std::string& directory, const std::string& minutes) {
    fake::WriteFile(Path(directory + "/rec_type.idx"), minutes);
  }
  static std::string Marked(int from, int count, char letter) {
    std::string minutes(kMinutes, 'C');
    return minutes.replace(static_cast<size_t>(from), static_cast<size_t>(count), static_cast<size_t>(count),
                           letter);
  }
  static std::vector<std::string> Dates(const std::list<long>& words) {
    std::vector<std::string> dates;
    for (const long word : words) {
      const struct tm day = record::LocalTime(record::FromTimeWord(word));
      dates.push_back(record::DayName(day.tm_year + 1900, day.tm_mon + 1, day.tm_mday));
    }
    return dates;
  }
};

TEST_F(QuestionsTest, TheEarliestFileThatHasNotEndedWins) {
  List("20240130/102000-av-1.kmv", 600);
  List("20240130/100000-av-1.kmv", 600);
  EXPECT_EQ(At(9, 59, 59), "100000-av-1.kmv +0");
  EXPECT_EQ(At(10, 5), "100000-av-1.kmv +300");
  EXPECT_EQ(At(10, 9, 59), "100000-av-1.kmv +599");
  EXPECT_EQ(At(10, 10), "102000-av-1.kmv +0");
  EXPECT_EQ(At(10, 40), "");
  ::testing::internal::CaptureStdout();
  const std::string between = At(10, 15);
  const std::string out = ::testing::internal::GetCapturedStdout();
  EXPECT_EQ(between, "102000-av-1.kmv +0");
  EXPECT_THAT(out, HasSubstr("] Get record at 2024-1-30 10:1502d:00, map_dayRecordInfo size:2\n"));
  EXPECT_THAT(out, HasSubstr("] szInfoFile -->i:37200:" + Path(kRoot) + "/20240130/102000-av-1.kmv \n"));
  EXPECT_TRUE(m_platform.Logged("]Get record at 2024-01-30 10:1502d:00 record info size:2, "));
  EXPECT_TRUE(m_platform.Logged("102000-av-1.kmv: 620:37200-630:37800, to findsecons=36900, offsetseconds=0"));
  EXPECT_TRUE(m_platform.Logged("]Cannot get recordfile for 2024-01-30 10:40:00"));
}

TEST_F(QuestionsTest, StreamsAndSensorsAreFilters) {
  List("20240130/103000-av-6.mp4", 600);
  List("20240130/102000-av-2.mp4", 600);
  List("20240130/101000-av-3.kmv", 600);
  List("20240130/100000-av-1.kmv", 600);
  EXPECT_EQ(AtStream(1, 10, 0), "100000-av-1.kmv +0");
  EXPECT_EQ(AtStream(1, 10, 10), "102000-av-2.mp4 +0");
  EXPECT_EQ(AtStream(2, 10, 0), "101000-av-3.kmv +0");
  EXPECT_EQ(AtStream(7, 10, 0), "");
  ::testing::internal::CaptureStdout();
  EXPECT_EQ(AtSensor(0, 10, 0), "102000-av-2.mp4 +0");
  EXPECT_EQ(AtSensor(0, 10, 30), "");
  EXPECT_EQ(AtSensor(3, 10, 32), "103000-av-6.mp4 +120");
  EXPECT_THAT(::testing::internal::GetCapturedStdout(),
              HasSubstr("] Get record ex at time:2024-1-30 10:32:0 by sensor[3]! recordinfo size:4!\n"));
  EXPECT_TRUE(m_platform.Logged("]Cannot get recordfile at 2024-01-30 10:30:00 by sensor[0]"));
}

TEST_F(QuestionsTest, TheIndexesAreTheMinuteMapAndTheLastOneWins) {
  Mount(0, 1000);
  Mount(1, 1000);
  Mount(3, 1000);
  Index("/mnt/mmc0/alarm/20240130", Marked(10, 4, 'B'));
  Index("/mnt/mmc1/manual/20240130", Marked(11, 2, 'A'));
  Index("/tmp/network/SN0001/alarm/20240130", Marked(12, 1, 'E').substr(0, 100));
  Index("/mnt/usb/alarm/20240130", Marked(0, kMinutes, 'Z'));  // not mounted
  std::string map(kMinutes, 'x');
  EXPECT_EQ(query_record_distribute_by_idxfile(2024, 1, 30, map.data(), kMinutes - 1), -1);
  EXPECT_EQ(map, std::string(kMinutes, 'x'));
  EXPECT_EQ(query_record_distribute_by_idxfile(2024, 1, 30, map.data(), kMinutes), 0);
  EXPECT_EQ(map, std::string(10, 'x') + "BAEB" + std::string(kMinutes - 14, 'x'));

  List("20240130/100000-av-1.kmv", 600);  // catalogued, and in no index
  EXPECT_EQ(GetRecordDistribute(2024, 1, 30, map.data()), 0);
  EXPECT_EQ(map, std::string(10, 'C') + "BAEB" + std::string(kMinutes - 14, 'C'));
  EXPECT_TRUE(m_platform.Logged("100000-av-1.kmv:  600:36000-36600"));
}

TEST_F(QuestionsTest, DaysAreThoseWithAMarkEachOnce) {
  Mount(0, 1000);
  Mount(2, 1000);
  for (const char* day : {"20240131", "20000101", "19991231", "20001301", "notes", "21000228", "20380120"})
    Index(std::string("/mnt/mmc0/motion/") + day, Marked(1439, 1, 'B'));
  Index("/mnt/usb/alarm/20240131", Marked(0, 1, 'B'));
  Index("/mnt/usb/manual/20231231", Marked(5, 1, 'A').substr(0, 6));
  Index("/mnt/usb/manual/20231230", Marked(0, 0, 'A'));
  std::filesystem::create_directories(Path("/mnt/usb/manual/20231229"));
  std::list<long> dates;
  EXPECT_EQ(GetHasRecordDateList(dates), 0);
  EXPECT_THAT(Dates(dates), ElementsAre("20231231", "20240131", "20380120", "21000228"));
  EXPECT_EQ(GetHasRecordDateList(dates), 0);  // appended to, and still each once
  EXPECT_EQ(dates.size(), 4u);
}

// A day of 23 hours and one of 25: names show the clock, and so do the answers.
TEST_F(QuestionsTest, DaylightSavingMovesNothing) {
  const fake::Zone zone("CET-1CEST,M3.5.0,M10.5.0/3");
  Mount(0, 1000);
  for (const char* day : {"20240331", "20241027"}) {
    m_platform.records.clear();
    for (const char* name : {"/235000-av-1.kmv", "/030000-av-1.kmv", "/023000-av-1.kmv", "/000000-av-1.kmv"})
      List(day + std::string(name), 600);
    Index(std::string(kRoot) + "/" + day, Marked(0, kMinutes, 'A'));
    const int month = day[5] - '0' + (day[4] - '0') * 10;
    const int number = month == 3 ? 31 : 27;
    std::string path;
    unsigned offset = 0;
    EXPECT_EQ(GetRecordFileAndOffset_by_streamIdx(2024, month, number, 23, 55, 0, path, offset, 1), 0);
    EXPECT_THAT(path, HasSubstr("235000"));
    EXPECT_EQ(offset, 300u);
    EXPECT_EQ(GetRecordFileAndOffset_by_streamIdx(2024, month, number, 2, 35, 0, path, offset, 1), 0);
    EXPECT_THAT(path, HasSubstr("023000"));
    std::string map(kMinutes, ' ');
    EXPECT_EQ(GetRecordDistribute(2024, month, number, map.data()), 0);
    EXPECT_EQ(map, std::string(kMinutes, 'A'));
  }
  std::list<long> dates;
  GetHasRecordDateList(dates);
  EXPECT_THAT(Dates(dates), ElementsAre("20240331", "20241027"));
}

// Any bytes in names, side files and indexes: no crash, maps that keep their rules, and each answer agrees with a
// plain look at the catalogue and the indexes.
TEST_F(QuestionsTest, RandomTreesGiveAnswersThatHold) {
  std::mt19937 random(20240130);
  const auto pick = [&](unsigned most) { return static_cast<unsigned>(random() % most); };
  const char* const pieces[] = {"20240131/", "20240130/", "0815", "00", "-av-", "-vv-", "-sv-", "-",    ".kmv",
                                ".mp4",      ".info",     "1",    "6",  "/",    "..",   "%s",   "\xff", "x"};
  const auto randomName = [&] {
    char name[64];
    std::snprintf(name, sizeof name, "2024013%u/%02u%02u%02u", pick(4) == 0 ? 1 : 0, pick(25), pick(61), pick(60));
    std::string text = pick(8) != 0 ? name : "";
    for (unsigned n = pick(3) == 0 ? pick(8) : 0; n > 0; --n) text += pieces[pick(std::size(pieces))];
    return text + (pick(4) == 0 ? "-x-" : "-av-") + std::to_string(pick(9)) + (pick(3) == 0 ? ".mp4" : ".kmv");
  };
  Mount(0, 1000);
  m_platform.keepLog = false;
  size_t catalogued = 0;
  for (int round = 0; round < 60; ++round) {
    m_platform.records.clear();
    for (unsigned files = pick(20); files > 0; --files) {
      const std::string name = randomName();
      std::string info = Bytes(Info(name, pick(4000), static_cast<int>(pick(4000)), static_cast<int>(pick(400))));
      if (pick(3) == 0) info[pick(304)] = static_cast<char>(random());
      if (pick(6) == 0) info.resize(pick(304));
      m_platform.records.push_back({kRoot, name});
      std::error_code error;
      std::filesystem::create_directories(std::filesystem::path(InfoFile(name)).parent_path(), error);
      if (!error && name.find("..") == std::string::npos) fake::WriteFile(InfoFile(name), info);
    }
    std::string index(pick(1500), 'C');
    for (unsigned marks = pick(40); marks > 0 && !index.empty(); --marks)
      index[pick(static_cast<unsigned>(index.size()))] = static_cast<char>(random());
    Index(std::string(kRoot) + "/20240130", index);

    std::string map(kMinutes, ' ');
    ASSERT_EQ(GetRecordDistribute(2024, 1, 30, map.data()), 0);
    index.resize(kMinutes, 'C');
    EXPECT_EQ(map, index);
    std::list<long> dates;
    GetHasRecordDateList(dates);
    EXPECT_EQ(dates.size(), index == std::string(kMinutes, 'C') ? 0u : 1u);
    for (int look = 0; look < 10; ++look) {
      const unsigned target = pick(86400);
      const auto day = QueryStream(1);  // looked at anew: a look may correct a side file
      std::string expected;
      for (auto at = day->map.rbegin(); at != day->map.rend(); ++at) {
        if (at->second->nEndSecond <= target) continue;
        const unsigned start = at->second->nStartSecond;
        expected = std::string(at->second->szFileName).substr(9) + " +" +
                   std::to_string(start < target ? target - start : 0);
      }
      const int second = static_cast<int>(target);
      EXPECT_EQ(AtStream(1, second / 3600, second / 60 % 60, second % 60), expected);
    }
    for (const int date : {30, 31}) {
      for (const auto& day : {Query(date), QueryStream(static_cast<int>(pick(8)), date), QuerySensors(date)}) {
        EXPECT_EQ(Entries(*day).size(), day->map.size());
        for (const auto& [key, file] : day->map)
          EXPECT_TRUE(key == file->nStartSecond || key >> 8 == file->nStartSecond) << file->szFileName;
        catalogued += day->map.size();
      }
    }
  }
  EXPECT_GT(catalogued, 500u);
}

}  // namespace
}  // namespace catalogue
