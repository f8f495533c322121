#include "base/clock.h"

#include <sys/time.h>

#include <cerrno>
#include <initializer_list>

#include "record/platform.h"

namespace record {
namespace {

WallTime SystemWallNow() {
  struct timeval now;
  gettimeofday(&now, nullptr);
  return {static_cast<long long>(now.tv_sec), static_cast<int>(now.tv_usec)};
}

void SystemSleep(long long microseconds) {
  struct timespec rest = {static_cast<time_t>(microseconds / 1000000),
                          static_cast<long>(microseconds % 1000000) * 1000L};
  while (nanosleep(&rest, &rest) != 0 && errno == EINTR) {
  }
}

constexpr ClockSource kSystemClock = {SystemWallNow, SystemSleep, nullptr};
const ClockSource* g_clock = &kSystemClock;

}  // namespace

void SetClockSource(const ClockSource* source) {
  g_clock = source != nullptr ? source : &kSystemClock;
}

WallTime WallNow() {
  return g_clock->now();
}

RunTime RunNow() {
  if (g_clock->run != nullptr) return g_clock->run();
  RunTime now;
  SystemGetTimeofRun(&now.seconds, &now.microseconds);
  return now;
}

void SleepUs(long long microseconds) {
  g_clock->sleepUs(microseconds);
}

struct tm LocalTime(long long seconds) {
  const time_t time = static_cast<time_t>(seconds);
  struct tm local = {};
  localtime_r(&time, &local);
  return local;
}

long long StandardTimeSeconds(struct tm local) {
  constexpr long long kStep = 30 * 86400;
  constexpr int kSteps = 7;  // daylight saving never lasts for so long
  const long long clock = timegm(&local);
  const long long near = clock - LocalTime(clock).tm_gmtoff;
  for (int step = 0; step <= kSteps; ++step) {
    for (const long long there : {near + step * kStep, near - step * kStep}) {
      const struct tm found = LocalTime(there);
      if (found.tm_isdst == 0) return clock - found.tm_gmtoff;
    }
  }
  return near;
}

// Not mktime(), which looks at the time zone anew with every call, under a lock that no thread checker knows of.
long long FromLocalTime(const struct tm& local) {
  constexpr int kRounds = 3;  // an offset, one of the other half of the year, and a look at the result
  struct tm wanted = local;
  wanted.tm_isdst = 0;
  const long long shown = timegm(&wanted);
  long long seconds = shown;
  for (int round = 0; round < kRounds; ++round) {
    struct tm found = LocalTime(seconds);
    found.tm_isdst = 0;
    seconds += shown - timegm(&found);
  }
  return seconds;
}

}  // namespace record
