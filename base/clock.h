// Time enters the library here and through the platform's clocks. Tests replace the wall clock and sleeping, and
// who makes a file of frames that have long been recorded replaces all of it.
#ifndef BASE_CLOCK_H
#define BASE_CLOCK_H

#include <cstdint>
#include <ctime>

namespace record {

struct WallTime {
  long long seconds;  // since 1970
  int microseconds;
};

struct RunTime {
  std::uint32_t seconds;
  std::uint32_t microseconds;
};

// How the clocks are made; replaced as a whole, before any thread runs.
struct ClockSource {
  WallTime (*now)();
  void (*sleepUs)(long long microseconds);
  RunTime (*run)() = nullptr;  // null: the platform's
};
void SetClockSource(const ClockSource* source);  // null restores the system's

WallTime WallNow();
RunTime RunNow();  // SystemGetTimeofRun, unless the source has another
void SleepUs(long long microseconds);
inline void SleepMs(int milliseconds) {
  SleepUs(milliseconds * 1000LL);
}

// Local broken-down time, on any thread. A time zone that is set meanwhile counts once the program has called
// tzset(): the C library keeps it for the whole process.
struct tm LocalTime(long long seconds);
// From what calendar and clock show: the month from 1 on, fields beyond their range as mktime takes them. Whether
// daylight saving holds is left to the zone's rules.
inline struct tm CalendarTime(int year, int month, int day, int hour = 0, int minute = 0, int second = 0) {
  struct tm time = {};
  time.tm_year = year - 1900;
  time.tm_mon = month - 1;
  time.tm_mday = day;
  time.tm_hour = hour;
  time.tm_min = minute;
  time.tm_sec = second;
  time.tm_isdst = -1;
  return time;
}
// The other way round, on any thread: seconds since 1970 of local year, month, day, hour, minute and second, which
// may lie outside their ranges. Of a time that comes twice one of both.
long long FromLocalTime(const struct tm& local);
inline struct tm LocalNow() {
  return LocalTime(WallNow().seconds);
}

// Seconds since 1970 of a date and time of the clock, read as standard time: what mktime makes of it when tm_isdst
// is 0, fields beyond their range included. On any thread: mktime itself reads the time zone anew for all of them.
long long StandardTimeSeconds(struct tm local);

// end - start in milliseconds; the microsecond difference is truncated on its own.
inline long long ElapsedMs(RunTime start, RunTime end) {
  return (static_cast<long long>(end.microseconds) - static_cast<long long>(start.microseconds)) / 1000 +
         1000LL * (static_cast<long long>(end.seconds) - static_cast<long long>(start.seconds));
}

}  // namespace record

#endif
