#include <ctime>

#include "base/clock.h"
#include "record/platform.h"

namespace {

struct timespec Read(clockid_t clock) {
  struct timespec now = {};
  clock_gettime(clock, &now);
  return now;
}

}  // namespace

unsigned long long GetCurrentTimeStamp_u64(void) {
  const struct timespec now = Read(CLOCK_MONOTONIC);
  return static_cast<unsigned long long>(now.tv_sec) * 1000u +
         static_cast<unsigned long long>(now.tv_nsec) / 1000000;
}

unsigned int GetCurrentTimeStamp(void) {
  return static_cast<unsigned int>(GetCurrentTimeStamp_u64());
}

// The boot clock goes on while the machine sleeps, so that the length of a file that spans a sleep is true.
void SystemGetTimeofRun(unsigned int* seconds, unsigned int* microseconds) {
  const struct timespec now = Read(CLOCK_BOOTTIME);
  *seconds = static_cast<unsigned int>(now.tv_sec);
  *microseconds = static_cast<unsigned int>(now.tv_nsec / 1000);
}

long long timeval_differ(unsigned int endSeconds, unsigned int endMicroseconds, unsigned int startSeconds,
                         unsigned int startMicroseconds) {
  const long long seconds = static_cast<long long>(endSeconds) - static_cast<long long>(startSeconds);
  const long long microseconds =
      static_cast<long long>(endMicroseconds) - static_cast<long long>(startMicroseconds);
  return (seconds * 1000000 + microseconds) / 1000;
}

// The host's own zone rules decide; the zone argument is of no use to it.
long long zq_mktime(int year, int month, int day, int hour, int minute, int second, int /*zone*/) {
  struct tm local = record::CalendarTime(year, month, day, hour, minute, second);
  return static_cast<long long>(mktime(&local));
}
