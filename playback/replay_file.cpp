#include "playback/replay_file.h"

#include <limits>

#include "base/clock.h"
#include "base/log.h"
#include "playback/timeline.h"
#include "query/day_catalogue.h"
#include "record/lookups.h"
#include "storage/layout.h"
#include "storage/record_info.h"

namespace record {
namespace {

int Find(long long time, pthread_mutex_t* search, ReplayFile& file) {
  const struct tm at = LocalTime(time);
  const HeldMutex held(search);
  return GetRecordFileAndOffset(at.tm_year + 1900, at.tm_mon + 1, at.tm_mday, at.tm_hour, at.tm_min, at.tm_sec,
                                file.path, file.offset);
}

// The first file of the day of `time` that begins later than `ended`, else the first one of the next day. One that
// does not last until `time` is played from its begin.
int FindLater(long long time, pthread_mutex_t* search, const std::string& ended, ReplayFile& file) {
  const struct tm at = LocalTime(time);
  const auto second = static_cast<unsigned>(at.tm_hour * 3600 + at.tm_min * 60 + at.tm_sec);
  {
    const HeldMutex held(search);
    DayCatalogue day;
    GetDayRecordInfo(at.tm_year + 1900, at.tm_mon + 1, at.tm_mday, day.map);
    bool isFound = false;
    for (const auto& [key, each] : day.map) {
      file.path = RecordFilePath(*each);
      file.offset = each->nStartSecond < second && second < each->nEndSecond ? second - each->nStartSecond : 0;
      isFound = ByTime()(ended, file.path);
      if (isFound) break;
    }
    if (isFound) return 0;
  }
  struct tm midnight = at;
  midnight.tm_mday += 1;
  midnight.tm_hour = midnight.tm_min = midnight.tm_sec = 0;
  return Find(FromLocalTime(midnight), search, file);
}

}  // namespace

int ReplayFileDuration(const char* path, struct timeval* start) {
  if (!path) return -1;
  const std::string infoPath = InfoPath(path);
  RecordInfoStruct info;
  const int size = ReadRecordInfo(infoPath, info);
  if (size < 0) {
    RECORD_LOG("open %s failed.\n", infoPath.c_str());
    return -1;
  }
  if (size != static_cast<int>(sizeof info)) {
    RECORD_LOG("Read RecordInfoStruct from %s failed.\n\n", infoPath.c_str());
    return -1;
  }
  if (start) {
    start->tv_sec = static_cast<time_t>(info.startSeconds);
    start->tv_usec = static_cast<suseconds_t>(info.startMicroseconds);
  }
  constexpr long long kMicroseconds = 1000000;
  const long long seconds = (info.endSeconds + info.endMicroseconds / kMicroseconds) -
                            (info.startSeconds + info.startMicroseconds / kMicroseconds);
  return seconds >= 0 && seconds <= std::numeric_limits<int>::max() / 1000 ? static_cast<int>(seconds) : -1;
}

int ReplayFileStart(const char* path, struct tm* start) {
  struct tm parsed;
  if (!path || !ParsePathTime(path, parsed)) return -1;
  start->tm_year = parsed.tm_year;
  start->tm_mon = parsed.tm_mon;
  start->tm_mday = parsed.tm_mday;
  start->tm_hour = parsed.tm_hour;
  start->tm_min = parsed.tm_min;
  start->tm_sec = parsed.tm_sec;
  return 0;
}

int FindReplayFile(long long time, pthread_mutex_t* search, const std::string& ended, ReplayFile& file) {
  const struct tm at = LocalTime(time);
  RECORD_LOG("Play %04d-%02d-%02d %02d:%02d:%02d\n\n", at.tm_year + 1900, at.tm_mon + 1, at.tm_mday, at.tm_hour,
             at.tm_min, at.tm_sec);
  int result = Find(time, search, file);
  if (!ended.empty() && (result < 0 || !ByTime()(ended, file.path))) result = FindLater(time, search, ended, file);
  if (result < 0) RECORD_LOG_TEXT("not find video file at this pos.\n\n");
  return result < 0 ? -1 : 0;
}

int DescribeReplayFile(ReplayFile& file) {
  file.duration = ReplayFileDuration(file.path.c_str(), nullptr);
  if (file.duration < 0) file.duration = kAssumedDuration;
  struct tm start = {};
  if (ReplayFileStart(file.path.c_str(), &start) != 0) {
    RECORD_LOG("File name invalid:%s.\n\n", file.path.c_str());
    return -1;
  }
  file.timestamp = FromLocalTime(start);
  return 0;
}

}  // namespace record
