// The record index: no data base, the day directories themselves are read at every query.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <new>
#include <string>
#include <vector>

#include "base/device_path.h"
#include "base/directory.h"
#include "base/log.h"
#include "record/storage.h"
#include "record_host/host.h"

namespace {

constexpr size_t kDayLength = 8;   // YYYYMMDD
constexpr size_t kTimeLength = 6;  // HHMMSS
constexpr int kMostDays = 366;

// A moment as the decimal number YYYYMMDDHHMMSS, which sorts like time.
using Moment = std::int64_t;
constexpr Moment kMomentsADay = 1000000;

struct Found {
  Moment start;
  REPLAY_QUERY_RESULT result;
};

struct Span {
  Moment begin;
  Moment end;
};

bool ToMoment(const struct tm& time, Moment* moment) {
  const bool valid = time.tm_year >= 0 && time.tm_year <= 8099 && time.tm_mon >= 0 && time.tm_mon <= 11 &&
                     time.tm_mday >= 1 && time.tm_mday <= 31 && time.tm_hour >= 0 && time.tm_hour <= 23 &&
                     time.tm_min >= 0 && time.tm_min <= 59 && time.tm_sec >= 0 && time.tm_sec <= 60;
  if (!valid) return false;
  const Moment day = (time.tm_year + 1900) * Moment{10000} + (time.tm_mon + 1) * 100 + time.tm_mday;
  *moment = day * kMomentsADay + time.tm_hour * 10000 + time.tm_min * 100 + time.tm_sec;
  return true;
}

int DaysOfMonth(int year, int month) {
  static constexpr int kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  const bool leap = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
  return month == 2 && leap ? 29 : kDays[month - 1];
}

int NextDay(int day) {
  const int year = day / 10000;
  const int month = day / 100 % 100;
  if (day % 100 < DaysOfMonth(year, month)) return day + 1;
  return month < 12 ? year * 10000 + (month + 1) * 100 + 1 : (year + 1) * 10000 + 101;
}

// A record file's name holds its extension anywhere; its side file's name ends in ".info".
bool IsRecordName(const char* name, size_t length) {
  for (size_t i = 0; i < kTimeLength; ++i) {
    if (name[i] < '0' || name[i] > '9') return false;
  }
  if (length >= 5 && memcmp(name + length - 5, ".info", 5) == 0) return false;
  return strstr(name, ".kmv") != nullptr || strstr(name, ".mp4") != nullptr || strstr(name, ".avi") != nullptr;
}

Moment TimeOfName(const char* name) {
  Moment time = 0;
  for (size_t i = 0; i < kTimeLength; ++i) time = time * 10 + (name[i] - '0');
  return time;
}

// `root` is the kind directory as the library knows it, without the device root.
void ScanDay(const std::string& root, int day, const Span& span, std::vector<Found>* found) {
  char dayName[16];
  snprintf(dayName, sizeof(dayName), "%08d", day);
  record::Directory directory(DevicePath(root) + "/" + dayName);
  if (!directory.IsOpen()) return;
  const size_t room = sizeof(REPLAY_QUERY_RESULT::szFileName) - kDayLength - 2;  // slash and terminator
  while (const struct dirent* entry = directory.Next()) {
    const size_t length = strlen(entry->d_name);
    if (length <= kTimeLength || !IsRecordName(entry->d_name, length)) continue;
    const Moment start = day * kMomentsADay + TimeOfName(entry->d_name);
    if (start < span.begin || start > span.end || !directory.IsRegularFile(*entry)) continue;
    if (length > room) {
      RECORD_LOG("name too long for the record index: %s/%s/%s\n", root.c_str(), dayName, entry->d_name);
      continue;
    }
    Found& one = found->emplace_back();
    one.start = start;
    memcpy(one.result.szRootPath, root.c_str(), root.size() + 1);
    memcpy(one.result.szFileName, dayName, kDayLength);
    one.result.szFileName[kDayLength] = '/';
    memcpy(one.result.szFileName + kDayLength + 1, entry->d_name, length + 1);
  }
}

bool IsMounted(const char* root) {
  return DRIVER_isDeviceMounted(DevicePath(root).c_str()) != 0;
}

// The kind directories of everything that is mounted, in the order in which equal times are listed.
std::vector<std::string> KindDirectories() {
  std::vector<std::string> media;
  for (int medium = 0; medium < record::kLocalMediumCount; ++medium) {
    if (IsMounted(record::kMediumRoots[medium])) media.emplace_back(record::kMediumRoots[medium]);
  }
  const char* network = record::kMediumRoots[record::kNetworkShare];
  char serial[32];
  if (IsMounted(network) && GetSN(serial, sizeof(serial)) == 0) {
    media.push_back(std::string(network) + "/" + serial);
  }
  std::vector<std::string> directories;
  for (const std::string& root : media) {
    for (const char* kind : record::kKindNames) {
      if (root.size() + 1 + strlen(kind) < sizeof(REPLAY_QUERY_RESULT::szRootPath)) {
        directories.push_back(root + "/" + kind);
      } else {
        RECORD_LOG("path too long for the record index: %s/%s\n", root.c_str(), kind);
      }
    }
  }
  return directories;
}

std::vector<Found> Scan(const Span& span) {
  std::vector<Found> found;
  const std::vector<std::string> directories = KindDirectories();
  const int last = static_cast<int>(span.end / kMomentsADay);
  int day = static_cast<int>(span.begin / kMomentsADay);
  for (int days = 0; day <= last && days < kMostDays; ++days, day = NextDay(day)) {
    for (const std::string& root : directories) ScanDay(root, day, span, &found);
  }
  return found;
}

// Newest first. What sorts is a small index, the results are moved once.
std::vector<REPLAY_QUERY_RESULT> NewestFirst(const std::vector<Found>& found) {
  std::vector<std::pair<Moment, std::uint32_t>> order;
  order.reserve(found.size());
  for (const Found& one : found) order.emplace_back(-one.start, static_cast<std::uint32_t>(order.size()));
  std::sort(order.begin(), order.end());
  std::vector<REPLAY_QUERY_RESULT> results;
  results.reserve(found.size());
  for (const auto& [start, at] : order) results.push_back(found[at].result);
  for (size_t i = 0; i < results.size(); ++i) results[i].next = i + 1 < results.size() ? &results[i + 1] : nullptr;
  return results;
}

}  // namespace

// A file belongs to the span in which it starts. The host has one channel and gives the filters no meaning.
REPLAY_QUERY_RESULT* QueryRecordFile(const REPLAY_QUERY_CONDITION* condition) {
  static thread_local std::vector<REPLAY_QUERY_RESULT> results;
  results.clear();
  Span span;
  if (condition == nullptr || !ToMoment(condition->begin, &span.begin) || !ToMoment(condition->end, &span.end)) {
    return nullptr;
  }
  try {
    results = NewestFirst(Scan(span));
  } catch (const std::bad_alloc&) {
    RECORD_LOG_TEXT("no memory for a query of the record index\n");
  }
  return results.empty() ? nullptr : results.data();
}
