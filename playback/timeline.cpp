#include "playback/timeline.h"

#include <algorithm>
#include <ctime>
#include <iterator>

#include "base/clock.h"
#include "base/log.h"
#include "query/day_catalogue.h"
#include "record/platform.h"
#include "storage/layout.h"

namespace record {
namespace {

constexpr size_t kPathMax = 255;  // longer ones tell of no time

// Where "YYYYMMDD/HHMMSS..." begins.
size_t TimePosition(const std::string& path) {
  constexpr size_t kDayLength = 8;
  const size_t slash = path.rfind('/');
  return slash == std::string::npos || slash < kDayLength ? 0 : slash - kDayLength;
}

}  // namespace

std::uint32_t StartTimestampOf(const std::string& path) {
  return static_cast<std::uint32_t>(PathStartSeconds(path.substr(0, kPathMax), -1));
}

std::uint32_t StartSecondOf(const std::string& path) {
  return PathStartSecond(path.substr(0, kPathMax));
}

bool IsSameLocalDay(long long a, long long b) {
  const struct tm first = LocalTime(a);
  const struct tm second = LocalTime(b);
  return first.tm_year == second.tm_year && first.tm_mon == second.tm_mon && first.tm_mday == second.tm_mday;
}

bool ByTime::operator()(const std::string& a, const std::string& b) const {
  const int order = a.compare(TimePosition(a), std::string::npos, b, TimePosition(b), std::string::npos);
  return order != 0 ? order < 0 : a < b;
}

int FindDayFiles(long long time, int channel, TimelineFiles& files) {
  constexpr int kFirstChannelStreams = 1;
  constexpr int kOtherChannelStreams = 6;
  files.clear();
  const struct tm day = LocalTime(time);
  const int year = day.tm_year + 1900;
  const int month = day.tm_mon + 1;
  const unsigned before = GetCurrentTimeStamp();
  DayCatalogue catalogue;
  if (GetDayRecordInfo_by_streamIdx(year, month, day.tm_mday, catalogue.map,
                                    channel == 0 ? kFirstChannelStreams : kOtherChannelStreams) < 0) {
    RECORD_LOG_MODULE(kLogModuleLifecycle, "Get %d-%d-%d day record info failed.\n", year, month, day.tm_mday);
    return -1;
  }
  RECORD_LOG_MODULE(kLogModuleLifecycle, "%d-%d-%d, get files: %u, spend %d ms\n", year, month, day.tm_mday,
                    static_cast<unsigned>(catalogue.map.size()), static_cast<int>(GetCurrentTimeStamp() - before));
  for (const auto& [key, file] : catalogue.map) {
    const std::string path = RecordFilePath(*file);
    files[path] = {StartTimestampOf(path), StartSecondOf(path), file->nEndSecond - file->nStartSecond};
  }
  return 0;
}

TimelineFiles::const_iterator FileFor(const TimelineFiles& files, long long time) {
  const auto holds = std::find_if(files.begin(), files.end(), [time](const auto& entry) {
    return Covers(entry.second, static_cast<std::uint32_t>(time));
  });
  if (holds != files.end()) return holds;
  RECORD_LOG("seektime %d not found in all files. \n", static_cast<int>(time));
  const auto later = std::find_if(files.begin(), files.end(), [time](const auto& entry) {
    return static_cast<long long>(entry.second.nStartTimestamp) > time;
  });
  return later == files.end() || later == files.begin() ? later : std::prev(later);
}

}  // namespace record
