// Record files for the tests of the catalogue: side files on the device and their listing by the platform.
#ifndef TESTS_QUERY_CATALOGUE_RECORDS_H
#define TESTS_QUERY_CATALOGUE_RECORDS_H

#include <cstring>
#include <ctime>
#include <memory>
#include <string>

#include "base/clock.h"
#include "record/catalogue.h"
#include "storage/layout.h"
#include "tests/support/device_test.h"

namespace catalogue {

constexpr char kRoot[] = "/mnt/mmc0/schedule";

// A catalogue that releases itself.
struct Day {
  DayRecordMap map;
  int result = -1;
  ~Day() { Free_MapRecordFileInfo(map); }
};

class CatalogueTest : public fake::DeviceTest {
 protected:
  // A side file for `name` (relative to kRoot) of that length, whose start is what the name tells.
  RecordInfoStruct Info(const std::string& name, double seconds, int videoFrames = 0, int audioFrames = 0) {
    const record::NameTime time = record::ParseNameTime(name.c_str());
    struct tm local = record::CalendarTime(time.year, time.month, time.day, time.hour, time.minute, time.second);
    RecordInfoStruct info = {};
    info.startSeconds = static_cast<std::uint32_t>(mktime(&local));
    info.startMicroseconds = 250000;
    const auto length = static_cast<long long>(seconds * 1000000) + info.startMicroseconds;
    info.endSeconds = info.startSeconds + static_cast<std::uint32_t>(length / 1000000);
    info.endMicroseconds = static_cast<std::uint32_t>(length % 1000000);
    info.nTimeSeconds = 4242;  // not believed
    info.videoFrames = videoFrames;
    info.audioFrames = audioFrames;
    return info;
  }
  std::string InfoFile(const std::string& name) { return Path(std::string(kRoot) + "/" + name + ".info"); }
  static std::string Bytes(const RecordInfoStruct& info) {
    return std::string(reinterpret_cast<const char*>(&info), sizeof info);
  }
  void List(const std::string& name, const std::string& infoBytes) {
    fake::WriteFile(InfoFile(name), infoBytes);
    m_platform.records.push_back({kRoot, name});
  }
  void List(const std::string& name, double seconds, int videoFrames = 0, int audioFrames = 0) {
    List(name, Bytes(Info(name, seconds, videoFrames, audioFrames)));
  }
  // A record of its own, the newest listed; also while threads run.
  void AddRecord(const std::string& name, double seconds, const std::string& bytes) {
    fake::WriteFile(Path(std::string(kRoot) + "/" + name), bytes);
    fake::WriteFile(InfoFile(name), Bytes(Info(name, seconds)));
    auto records = m_platform.ListedRecords();
    records.insert(records.begin(), {kRoot, name});
    m_platform.ListRecords(records);
  }
  RecordInfoStruct StoredInfo(const std::string& name) {
    RecordInfoStruct info = {};
    const std::string bytes = fake::ReadFile(InfoFile(name));
    EXPECT_EQ(bytes.size(), sizeof info);
    std::memcpy(&info, bytes.data(), std::min(bytes.size(), sizeof info));
    return info;
  }

  // The three catalogues of a day of January 2024.
  template <typename... Stream>
  std::unique_ptr<Day> Ask(int (*catalogue)(int, int, int, DayRecordMap&, Stream...), int day, Stream... stream) {
    auto found = std::make_unique<Day>();
    found->result = catalogue(2024, 1, day, found->map, stream...);
    return found;
  }
  std::unique_ptr<Day> Query(int day = 30) { return Ask(GetDayRecordInfo, day); }
  std::unique_ptr<Day> QueryStream(int stream, int day = 30) {
    return Ask(GetDayRecordInfo_by_streamIdx, day, stream);
  }
  std::unique_ptr<Day> QuerySensors(int day = 30) { return Ask(GetDayRecordInfoEx, day); }
};

// "name start-end" of each record in the map's order.
inline std::vector<std::string> Entries(const Day& day) {
  EXPECT_EQ(day.result, 0);
  std::vector<std::string> entries;
  for (const auto& [key, file] : day.map) {
    EXPECT_EQ(file->nStartMinute, file->nStartSecond / 60);
    EXPECT_EQ(file->nEndMinute, file->nEndSecond / 60);
    entries.push_back(std::string(file->szFileName) + " " + std::to_string(file->nStartSecond) + "-" +
                      std::to_string(file->nEndSecond));
  }
  return entries;
}

}  // namespace catalogue

#endif
