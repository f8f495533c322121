#include <sys/stat.h>

#include <filesystem>

#include "record/lookups.h"
#include "tests/query/catalogue_records.h"

namespace catalogue {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class DayCatalogueTest : public CatalogueTest {};

TEST_F(DayCatalogueTest, ADayWithoutFilesIsEmpty) {
  const auto day = Query();
  EXPECT_THAT(Entries(*day), IsEmpty());
  EXPECT_THAT(Entries(*QueryStream(1)), IsEmpty());
  EXPECT_THAT(Entries(*QuerySensors()), IsEmpty());
  EXPECT_EQ(m_platform.CountLogged("]p_query_result==NULL"), 3);
  EXPECT_EQ(m_platform.CountLogged("]input query at 2024-01-30"), 1);
  EXPECT_EQ(m_platform.CountLogged("]input 2024-01-30"), 1);
  EXPECT_EQ(m_platform.CountLogged("]input query at time 2024-01-30"), 1);
}

TEST_F(DayCatalogueTest, FilesAreOrderedByTheirStartAndEndWithTheirSideFile) {
  List("20240130/235959-av-1.kmv", 120.6);
  List("20240130/120000-vv-2.avi", 59.4);
  List("20240130/000000-av-1.mp4", 60.5);
  const auto day = Query();
  EXPECT_THAT(Entries(*day), ElementsAre("20240130/000000-av-1.mp4 0-61", "20240130/120000-vv-2.avi 43200-43259",
                                         "20240130/235959-av-1.kmv 86399-86520"));
  const RecordFileInfo& last = *day->map.at(86399);
  EXPECT_STREQ(last.szRootPath, kRoot);
  EXPECT_EQ(RecordFilePath(last), Path("/mnt/mmc0/schedule/20240130/235959-av-1.kmv"));
}

TEST_F(DayCatalogueTest, ABadFileIsSkippedAndTheOthersStay) {
  const std::string good = Bytes(Info("20240130/100000-av-1.kmv", 60));
  List("20240130/235900-av-1.jpg", good);
  List("20240130/235800-av-1.KMV", good);
  List("20240130/235700-av-1.kmv", good.substr(0, 303));
  List("20240130/235600-av-1.kmv", "");
  m_platform.records.push_back({kRoot, "20240130/235500-av-1.kmv"});  // no side file
  List("20240129/235400-av-1.kmv", good);
  List("20240230/235300-av-1.kmv", good);
  List("2024013x/235200-av-1.kmv", good);
  List("20240130/100000-av-1.kmv", good);
  const std::string pipe = "20240130/090000-av-1.kmv";
  ASSERT_EQ(mkfifo(InfoFile(pipe).c_str(), 0600), 0);
  m_platform.records.push_back({kRoot, pipe});
  std::filesystem::create_directory(InfoFile("20240130/080000-av-1.kmv"));
  m_platform.records.push_back({kRoot, "20240130/080000-av-1.kmv"});
  List("20240130/070000-av-1.kmv", good + "what a later version appends");

  const std::vector<std::string> expected = {"20240130/070000-av-1.kmv 25200-25260",
                                             "20240130/100000-av-1.kmv 36000-36060"};
  EXPECT_EQ(Entries(*Query()), expected);
  EXPECT_EQ(Entries(*QueryStream(1)), expected);
  EXPECT_EQ(Entries(*QuerySensors()), expected);
  const std::string path = Path("/mnt/mmc0/schedule/");
  EXPECT_EQ(
      m_platform.CountLogged("]record file:" + path + "20240130/235700-av-1.kmv: read size 303 not equal to 304"),
      3);
  EXPECT_EQ(m_platform.CountLogged("20240129/235400-av-1.kmv not correct at time:2024-1-29"), 2);
  EXPECT_EQ(m_platform.CountLogged("20240129/235400-av-1.kmv not correct at time: 2024-1-29"), 1);
  EXPECT_EQ(m_platform.CountLogged("]Open file:" + path + "20240130/235500-av-1.kmv.info failed!"), 1);
  EXPECT_FALSE(m_platform.Logged("235900-av-1.jpg"));
}

TEST_F(DayCatalogueTest, DurationsThatCannotBeAreMadeFromTheFrameCounts) {
  struct Case {
    double seconds;
    int videoFrames, audioFrames;
    unsigned expected;
  };
  const Case cases[] = {
      {12, 900, 0, 60},
      {12, 900, 1000, 40},
      {12, 150, 0, 12},
      {12, 180, 180, 12},  // 180 / 15
      {12, 179, 5000, 12},
      {12, 180, 181, 7},
      {20.4, 900, 0, 60},
      {20.6, 900, 0, 21},
      {0, 900, 180, 60},
      {0, -900, 0, 0},
      {0, 900, -1, 60},
      {0, 0x7fffffff, 0, 143165576},
      {0, 200, 0x7fffffff, 85899345},
  };
  for (const Case& each : cases) {
    m_platform.Reset();
    List("20240130/000000-av-1.kmv", each.seconds, each.videoFrames, each.audioFrames);
    const auto day = Query();
    ASSERT_EQ(day->map.size(), 1u);
    EXPECT_EQ(day->map.at(0)->nEndSecond, each.expected) << each.videoFrames << " " << each.audioFrames;
    EXPECT_EQ(m_platform.Logged("]#### fileInfo.nTimeSeconds (" + std::to_string(std::lround(each.seconds)) +
                                ") < 20, something wrong, corrent it"),
              each.seconds < 20.5 && each.videoFrames >= 180);
    EXPECT_EQ(StoredInfo("20240130/000000-av-1.kmv").nTimeSeconds, 4242u);  // only clipping writes
  }
}

TEST_F(DayCatalogueTest, EachFileEndsWhereTheOneListedBeforeBegins) {
  List("20240130/120000-av-1.kmv", 600);
  List("20240130/115000-av-1.kmv", 5000);
  List("20240130/114940-av-1.kmv", 5000);  // would keep less than 30 s
  List("20240130/114910-av-1.kmv", 5000);  // keeps exactly 30 s
  List("20240130/114000-av-1.kmv", 60);    // ends before
  EXPECT_THAT(Entries(*Query()),
              ElementsAre("20240130/114000-av-1.kmv 42000-42060", "20240130/114910-av-1.kmv 42550-42580",
                          "20240130/114940-av-1.kmv 42580-47580", "20240130/115000-av-1.kmv 42600-43200",
                          "20240130/120000-av-1.kmv 43200-43800"));
  EXPECT_EQ(m_platform.CountLogged("]change end time to 42580"), 1);

  const RecordInfoStruct corrected = StoredInfo("20240130/115000-av-1.kmv");
  RecordInfoStruct expected = Info("20240130/115000-av-1.kmv", 5000);
  expected.nTimeSeconds = 600;
  expected.endSeconds = expected.startSeconds + 600;
  expected.endMicroseconds = 0;
  EXPECT_TRUE(Bytes(corrected) == Bytes(expected));
  EXPECT_TRUE(Bytes(StoredInfo("20240130/114940-av-1.kmv")) == Bytes(Info("20240130/114940-av-1.kmv", 5000)));
}

// The fixture's clock says 08:15:00 on the 31st: second 29700.
TEST_F(DayCatalogueTest, TodaysNewestFileEndsNow) {
  struct Case {
    const char* name;
    bool locked;
    unsigned end;
    bool corrected;
  };
  const Case cases[] = {
      {"20240131/081450-av-1.kmv", false, 30190, false},  // 10 s old: not clipped
      {"20240131/081430-av-1.kmv", false, 29700, true},  {"20240131/081320-av-1.kmv", false, 29700, true},
      {"20240131/081320-av-2.kmv", true, 29700, false},   // being recorded: clipped here, untouched there
      {"20240131/081500-av-1.kmv", false, 30200, false},  // begins now
      {"20240131/090000-av-1.kmv", false, 32900, false},  // begins after now
  };
  for (const Case& each : cases) {
    SCOPED_TRACE(each.name);
    m_platform.Reset();
    List(each.name, 500);
    const std::string lock = record::LockFilePath(each.name);
    if (each.locked) fake::WriteFile(lock, "");
    const std::string before = fake::ReadFile(InfoFile(each.name));
    const auto day = Query(31);
    ASSERT_EQ(day->map.size(), 1u);
    EXPECT_EQ(day->map.begin()->second->nEndSecond, each.end);
    EXPECT_TRUE(m_platform.Logged("]Search today!"));
    EXPECT_EQ(m_platform.Logged("]szRecordingLockFile:" + lock), each.end == 29700);
    EXPECT_EQ(m_platform.Logged("]Correct info file"), each.corrected);
    EXPECT_EQ(fake::ReadFile(InfoFile(each.name)) != before, each.corrected);
  }
}

TEST_F(DayCatalogueTest, ASideFileThatItsWriterFinishesMeanwhileIsLeftAlone) {
  const std::string name = "20240131/081320-av-1.kmv";
  List(name, 500);  // as it stands while the file is written
  const std::string lock = record::LockFilePath(name.c_str());
  fake::WriteFile(lock, "");
  const std::string finished = Bytes(Info(name, 99.5, 2487, 4975));
  m_platform.OnLog([&](const std::string& line) {
    if (line.find("]change end time to ") == std::string::npos) return;
    fake::WriteFile(InfoFile(name), finished);
    std::filesystem::remove(lock);
  });
  const auto day = Query(31);
  m_platform.OnLog(nullptr);
  EXPECT_THAT(Entries(*day), ElementsAre(name + " 29600-29700"));
  EXPECT_TRUE(fake::ReadFile(InfoFile(name)) == finished);
  EXPECT_FALSE(m_platform.Logged("]Correct info file"));
}

TEST_F(DayCatalogueTest, TheFirstListedOfTwoThatStartTogetherStays) {
  List("20240130/120000-av-1.kmv", 600);
  List("20240130/120000-av-2.kmv", 300);
  List("20240130/110000-av-1.kmv", 6000);  // clipped to the dropped file's start, too
  EXPECT_THAT(Entries(*Query()),
              ElementsAre("20240130/110000-av-1.kmv 39600-43200", "20240130/120000-av-1.kmv 43200-43800"));
}

TEST_F(DayCatalogueTest, TheMapIsClearedAndItsOldRecordsAreTheCallers) {
  RecordFileInfo mine = {};
  DayRecordMap map = {{7, &mine}};
  EXPECT_EQ(GetDayRecordInfo(2024, 1, 30, map), 0);
  EXPECT_TRUE(map.empty());
  map[1] = nullptr;
  Free_MapRecordFileInfo(map);
  EXPECT_TRUE(map.empty());
}

using StreamCatalogueTest = DayCatalogueTest;

std::vector<std::string> Names(const Day& day) {
  std::vector<std::string> names;
  for (const auto& entry : day.map) names.push_back(std::string(entry.second->szFileName).substr(9));
  return names;
}

TEST_F(StreamCatalogueTest, KeepsTheRequestedPair) {
  for (const int number : {0, 1, 2, 3, 4, 5, 6, 7})
    List("20240130/12000" + std::to_string(number) + "-av-" + std::to_string(number) + ".mp4", 1);
  EXPECT_THAT(Names(*QueryStream(1)), ElementsAre("120001-av-1.mp4", "120002-av-2.mp4"));
  EXPECT_THAT(Names(*QueryStream(5)), ElementsAre("120005-av-5.mp4", "120006-av-6.mp4"));
  EXPECT_THAT(Names(*QueryStream(6)), ElementsAre("120004-av-4.mp4", "120006-av-6.mp4"));
  EXPECT_THAT(Names(*QueryStream(0)), ElementsAre("120000-av-0.mp4", "120001-av-1.mp4"));
  EXPECT_THAT(Names(*QueryStream(0x7fffffff)), IsEmpty());
  EXPECT_THAT(Names(*QueryStream(-1)), ElementsAre("120000-av-0.mp4"));
  for (const fake::LogLine& line : m_platform.Log()) {
    const bool lifecycle =
        line.text.find("]input ") != std::string::npos || line.text.find(", nTimeSeconds ") != std::string::npos;
    EXPECT_EQ(line.module, lifecycle ? 1 : 8) << line.text;
  }
}

TEST_F(StreamCatalogueTest, TheFirstTagOfANameTells) {
  List("20240130/120005-sv-5.kmv", 1);
  List("20240130/120004-vv-5.kmv", 1);
  List("20240130/120003-sv-9-av-5.kmv", 1);  // "-av-" is looked for first, and does not stand at the first dash
  EXPECT_THAT(Names(*QueryStream(5)), ElementsAre("120003-sv-9-av-5.kmv", "120004-vv-5.kmv", "120005-sv-5.kmv"));
}

TEST_F(StreamCatalogueTest, ANameWithoutATagIsComparedAsStream1WithTheLastNumber) {
  List("20240130/120009-xx-5.kmv", 1);  // nothing parsed yet: not listed; from here on stream 1 is wanted
  List("20240130/120008-av-5.kmv", 1);  // so this is not kept
  List("20240130/120007-av-2.kmv", 1);
  List("20240130/120006.kmv", 1);  // carries the 2 on
  List("20240130/120005-av-3.kmv", 1);
  List("20240130/120004.kmv", 1);
  EXPECT_THAT(Names(*QueryStream(5)), ElementsAre("120006.kmv", "120007-av-2.kmv"));
}

TEST_F(StreamCatalogueTest, ClipsWithoutAMinimumAndKeepsTheLastOfTwo) {
  List("20240130/120000-av-1.kmv", 600);
  List("20240130/115959-av-1.kmv", 600);
  List("20240130/115000-av-1.kmv", 10);
  List("20240130/115000-av-2.kmv", 20);
  EXPECT_THAT(Entries(*QueryStream(1)),
              ElementsAre("20240130/115000-av-2.kmv 42600-42620", "20240130/115959-av-1.kmv 43199-43200",
                          "20240130/120000-av-1.kmv 43200-43800"));
  EXPECT_TRUE(m_platform.Logged("]/mnt/mmc0/schedule/20240130/115959-av-1.kmv: change end time to 43200"));
  EXPECT_EQ(StoredInfo("20240130/115959-av-1.kmv").nTimeSeconds, 1u);
}

using SensorCatalogueTest = DayCatalogueTest;

TEST_F(SensorCatalogueTest, KeepsSensorsSideBySide) {
  List("20240130/120000-av-2.kmv", 60);
  List("20240130/120000-av-1.kmv", 30);
  List("20240130/110000-av-300.kmv", 10);  // the low byte counts
  const auto day = QuerySensors();
  EXPECT_THAT(Entries(*day),
              ElementsAre("20240130/110000-av-300.kmv 39600-39610", "20240130/120000-av-1.kmv 43200-43230",
                          "20240130/120000-av-2.kmv 43200-43260"));
  EXPECT_EQ(day->map.begin()->first, (39600u << 8) + 300 % 256);
}

TEST_F(SensorCatalogueTest, OfEqualKeysTheLastNameStaysButTheFirstOfEqualNames) {
  List("20240130/120000-av-1.kmv", 10);
  List("20240130/120000-vv-1.kmv", 20);
  List("20240130/110000-av-1.kmv", 30);
  fake::WriteFile(Path("/mnt/mmc1/schedule/20240130/110000-av-1.kmv.info"),
                  Bytes(Info("20240130/110000-av-1.kmv", 40)));
  m_platform.records.push_back({"/mnt/mmc1/schedule", "20240130/110000-av-1.kmv"});
  const auto day = QuerySensors();
  EXPECT_THAT(Entries(*day),
              ElementsAre("20240130/110000-av-1.kmv 39600-39630", "20240130/120000-vv-1.kmv 43200-43220"));
  EXPECT_STREQ(day->map.begin()->second->szRootPath, kRoot);
}

TEST_F(SensorCatalogueTest, ClipsLikeTheDayAndTellsItsReference) {
  List("20240131/081320-av-1.kmv", 500);
  List("20240131/081319-av-1.kmv", 500);
  EXPECT_THAT(Entries(*QuerySensors(31)),
              ElementsAre("20240131/081319-av-1.kmv 29599-30099", "20240131/081320-av-1.kmv 29600-29700"));
  EXPECT_TRUE(m_platform.Logged("]Search today! lastFileBeginTime:29700!"));
}

using HostileCatalogueTest = DayCatalogueTest;

TEST_F(HostileCatalogueTest, SideFilesMayHoldAnything) {
  RecordInfoStruct backwards = Info("20240130/110000-av-1.kmv", 60);
  std::swap(backwards.startSeconds, backwards.endSeconds);
  List("20240130/120000-av-1.kmv", std::string(304, '\xff'));
  List("20240130/110000-av-1.kmv", Bytes(backwards));
  List("20240130/100000-av-1.kmv", std::string(304, '\0'));
  RecordInfoStruct longest = Info("20240130/090000-av-1.kmv", 0);
  longest.startSeconds = 0;
  longest.endSeconds = 0x7fffffff;
  List("20240130/090000-av-1.kmv", Bytes(longest));
  // An end before the start is no length.
  EXPECT_THAT(Entries(*Query()),
              ElementsAre("20240130/090000-av-1.kmv 32400-36000", "20240130/100000-av-1.kmv 36000-36000",
                          "20240130/110000-av-1.kmv 39600-39600", "20240130/120000-av-1.kmv 43200-43200"));
  EXPECT_EQ(StoredInfo("20240130/090000-av-1.kmv").endSeconds, 3600u);
}

TEST_F(HostileCatalogueTest, FieldsOfThePlatformNeedNotBeTerminated) {
  const std::string fits = "20240130/110000-av-1.kmv" + std::string(47 - 24, 'x');
  List(fits, 10);
  for (const size_t length : {48u, 55u, 56u}) List("20240130/120000-av-1.kmv" + std::string(length - 24, 'x'), 10);
  fake::WriteFile(Path("/" + std::string(47, 'r') + "/20240130/100000-av-1.kmv.info"),
                  Bytes(Info("20240130/100000-av-1.kmv", 10)));
  m_platform.records.push_back({"/" + std::string(47, 'r'), "20240130/100000-av-1.kmv"});
  const auto day = Query();
  EXPECT_THAT(Names(*day), ElementsAre(fits.substr(9)));
  EXPECT_EQ(m_platform.CountLogged(": the name is too long"), 4);
  EXPECT_THAT(Names(*QuerySensors()), ElementsAre(fits.substr(9)));
}

class LookupsTest : public fake::DeviceTest {};

TEST_F(LookupsTest, KnowTodayByTheLocalClock) {
  EXPECT_EQ(IsTodayDate(2024, 1, 31), 1);
  for (const auto& [year, month, day] : {std::tuple(2023, 1, 31), {2024, 2, 31}, {2024, 1, 30}, {124, 0, 31}})
    EXPECT_EQ(IsTodayDate(year, month, day), 0);
  EXPECT_EQ(GetSecondsOfToday(), 29700u);
  m_clock.Reset(2024, 1, 31, 23, 59, 59);
  EXPECT_EQ(GetSecondsOfToday(), 86399u);
  m_clock.Sleep(1000);
  EXPECT_EQ(GetSecondsOfToday(), 0u);
  EXPECT_EQ(IsTodayDate(2024, 2, 1), 1);
}

TEST_F(LookupsTest, ReadTheSensorChannelOutOfAName) {
  struct Case {
    const char* name;
    int channel;
  };
  const Case cases[] = {
      {"120000-av-2.mp4", 2},
      {"120000-av-0.mp4", 1},
      {"abc.mp4", 1},
      {"x-1234567.mp4", 1234567},
      {"x-12345678.mp4", 1},
      {"x-.mp4", 1},
      {"x-3", 1},
      {"x.3-4", 1},
      {"", 1},
      {"-", 1},
      {".", 1},
      {"20240130/120000-av-12.kmv.info", 12},
      {"a-5-7.mp4", 7},
      {"a-x.mp4", 1},
      {"a-3x.mp4", 3},
      {"a--5.mp4", 5},
  };
  for (const Case& each : cases) {
    std::string name = each.name;
    EXPECT_EQ(record_get_sensor_chn(name.data()), each.channel) << each.name;
  }
}

}  // namespace
}  // namespace catalogue
