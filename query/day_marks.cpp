// Which minutes and which days hold recordings, as the type indexes tell.
#include <algorithm>
#include <cstring>
#include <ctime>
#include <vector>

#include "base/clock.h"
#include "base/device_path.h"
#include "base/directory.h"
#include "base/log.h"
#include "base/no_throw.h"
#include "base/time_word.h"
#include "query/day_catalogue.h"
#include "record/lookups.h"
#include "storage/layout.h"
#include "storage/media.h"
#include "storage/type_index.h"

namespace record {
namespace {

// The record-type directories of everything that is mounted, in their order.
template <typename Step>
void ForEachKindDirectory(const Step& step) {
  for (const std::string& base : MountedBases()) {
    RECORD_LOG("%s", base.c_str());
    for (const char* kind : kKindNames) step(JoinPath(base, kind));
  }
}

void MergeIndex(const std::string& path, char* minuteMap) {
  char minutes[kTypeIndexMinutes];
  if (!LoadTypeIndex(path, minutes)) return;
  for (int minute = 0; minute < kTypeIndexMinutes; ++minute) {
    if (minutes[minute] != kNoRecording) minuteMap[minute] = minutes[minute];
  }
}

char LetterOf(const char* rootPath) {
  const auto holds = [rootPath](const char* kind) { return std::strstr(rootPath, kind) != nullptr; };
  if (holds("manual") || holds("schedule")) return 'A';
  return holds("motion") || holds("alarm") ? 'B' : kNoRecording;
}

void MarkCatalogue(const DayRecordMap& map, char* minuteMap) {
  for (const auto& entry : map) {
    const RecordFileInfo& file = *entry.second;
    RECORD_LOG("%s:  %d:%d-%d", RecordFilePath(file).c_str(), static_cast<int>(file.nStartMinute),
               static_cast<int>(file.nStartSecond), static_cast<int>(file.nEndSecond));
    const auto behind = std::min<std::uint32_t>(file.nEndMinute, kTypeIndexMinutes - 1) + 1;
    if (file.nStartMinute < behind)
      std::memset(minuteMap + file.nStartMinute, LetterOf(file.szRootPath), behind - file.nStartMinute);
  }
}

bool IsRecordDay(const char* name, struct tm& day) {
  day = {};
  if (!ScanDay(name, day)) return false;
  const int year = day.tm_year + 1900;
  return year >= 2000 && year <= 2999 && day.tm_mon >= 0 && day.tm_mon <= 11 && day.tm_mday >= 1 &&
         day.tm_mday <= 31;
}

bool HasMarks(const std::string& indexPath) {
  char minutes[kTypeIndexMinutes];
  if (!LoadTypeIndex(indexPath, minutes)) return false;
  RECORD_LOG("%s", indexPath.c_str());
  return std::any_of(minutes, minutes + kTypeIndexMinutes, [](char minute) { return minute != kNoRecording; });
}

void CollectDays(const std::string& kindDirectory, std::vector<long long>& midnights) {
  Directory directory(kindDirectory, Directory::Links::kFollow);
  if (!directory.IsOpen()) return;
  while (const dirent* entry = directory.Next()) {
    struct tm day;
    if (!IsRecordDay(entry->d_name, day)) continue;
    if (HasMarks(TypeIndexPath(JoinPath(kindDirectory, entry->d_name))))
      midnights.push_back(StandardTimeSeconds(day));
  }
  RECORD_LOG("readdir end: %s", kindDirectory.c_str());
}

// Kept: a device that does not know the time stands at the begin of 2000, and that day is never told.
long long NeverTold() {
  struct tm day = {};
  day.tm_year = 100;
  day.tm_mday = 1;
  return StandardTimeSeconds(day);
}

void ListDays(std::list<long>& dates) {
  std::vector<long long> midnights;
  for (const long date : dates) midnights.push_back(FromTimeWord(date));
  ForEachKindDirectory([&](const std::string& directory) { CollectDays(directory, midnights); });
  std::sort(midnights.begin(), midnights.end());
  std::list<long> told;
  long long before = NeverTold();
  for (const long long midnight : midnights) {
    if (midnight != before) told.push_back(ToTimeWord(midnight));
    before = midnight;
  }
  dates.swap(told);
}

}  // namespace
}  // namespace record

int query_record_distribute_by_idxfile(int year, int month, int day, char* minuteMap, int length) try {
  if (length != record::kTypeIndexMinutes) return -1;
  const std::string name = record::DayName(year, month, day);
  record::ForEachKindDirectory([&](const std::string& directory) {
    record::MergeIndex(record::TypeIndexPath(record::JoinPath(directory, name)), minuteMap);
  });
  return 0;
}
RECORD_NO_THROW(-1)

int GetRecordDistribute(int year, int month, int day, char* minuteMap) try {
  std::memset(minuteMap, record::kNoRecording, record::kTypeIndexMinutes);
  record::DayCatalogue found;
  if (GetDayRecordInfo(year, month, day, found.map) != 0) {
    RECORD_LOG("Get %d-%d-%d day record info failed.", year, month, day);
    return -1;
  }
  RECORD_LOG("%d-%d-%d", year, month, day);
  record::MarkCatalogue(found.map, minuteMap);
  // Kept: the indexes have the last word on every minute.
  std::memset(minuteMap, record::kNoRecording, record::kTypeIndexMinutes);
  return query_record_distribute_by_idxfile(year, month, day, minuteMap, record::kTypeIndexMinutes);
}
RECORD_NO_THROW(-1)

int GetHasRecordDateList(std::list<long>& dates) try {
  record::ListDays(dates);
  return 0;
}
RECORD_NO_THROW(0)
