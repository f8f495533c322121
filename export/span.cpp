#include "export/span.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>
#include <utility>

namespace record {
namespace {

constexpr unsigned kDay = 86400;
constexpr unsigned kLongest = 600;                // seconds
constexpr unsigned kLastStart = kDay - kLongest;  // 23:50:00
constexpr int kTimelapseRate = 25;                // frames/s
constexpr unsigned kShortestTimelapse = 60;       // minutes

struct TimeOfDay {
  unsigned hour, minute, second;
  unsigned Seconds() const { return hour * 3600 + minute * 60 + second; }
};

TimeOfDay BeginOf(const DayTimeSpan& span) {
  return {span.beginHour, span.beginMinute, span.beginSecond};
}

TimeOfDay EndOf(const DayTimeSpan& span) {
  return {span.endHour, span.endMinute, span.endSecond};
}

unsigned char Byte(unsigned value) {
  return static_cast<unsigned char>(value);
}

DayTimeSpan Joined(const TimeOfDay& begin, const TimeOfDay& end) {
  return {Byte(begin.hour), Byte(begin.minute), Byte(begin.second),
          Byte(end.hour),   Byte(end.minute),   Byte(end.second)};
}

TimeOfDay FromSeconds(unsigned seconds) {
  return {seconds / 3600, seconds / 60 % 60, seconds % 60};
}

// Only the first field that is beyond its end counts; those behind it are void. 24, 60 and 60 are taken as they
// are.
TimeOfDay Limited(const TimeOfDay& time) {
  if (time.hour > 24) return {24, 0, 0};
  if (time.minute > 60) return {time.hour, 60, 0};
  return {time.hour, time.minute, std::min(time.second, 60u)};
}

TimeOfDay LimitedEnd(const TimeOfDay& time) {
  const TimeOfDay end = Limited(time);
  return end.Seconds() == 0 ? TimeOfDay{24, 0, 0} : end;
}

// The ten minutes that end at the moment asked for, within its day. From 23:50 on those that end with the day,
// whose end is 00:00:00 and lies before every file: kept, such a span exports nothing.
ExportSpan TenMinutesUpTo(unsigned moment) {
  if (moment >= kLastStart) return {Joined(FromSeconds(kLastStart), {0, 0, 0}), kLongest};
  const unsigned begin = moment > kLongest ? moment - kLongest : 0;
  return {Joined(FromSeconds(begin), FromSeconds(moment)), moment - begin};
}

std::string Text(const TimeOfDay& time) {
  char text[48];
  std::snprintf(text, sizeof text, "%02u:%02u:%02u", time.hour, time.minute, time.second);
  return text;
}

}  // namespace

ExportSpan NormaliseRecordSpan(const DayTimeSpan& asked) {
  TimeOfDay begin = Limited(BeginOf(asked));
  TimeOfDay end = LimitedEnd(EndOf(asked));
  if (end.Seconds() == begin.Seconds()) return TenMinutesUpTo(begin.Seconds());
  if (end.Seconds() < begin.Seconds()) std::swap(begin, end);
  const unsigned length = end.Seconds() - begin.Seconds();
  if (length <= kLongest) return {Joined(begin, end), length};
  end = FromSeconds(begin.Seconds() + kLongest);
  end.hour %= 24;
  return {Joined(begin, end), kLongest};
}

// Ends are compared as texts, as callers know it: "24:60:00" is behind "24:00:00".
ExportSpan NormaliseTimelapseSpan(const DayTimeSpan& asked) {
  TimeOfDay begin = Limited(BeginOf(asked));
  TimeOfDay end = LimitedEnd(EndOf(asked));
  const std::string from = Text(begin);
  const std::string to = Text(end);
  if (from >= "23:59:59") {
    begin = {0, 0, 0};
  } else if (from > to) {
    std::swap(begin, end);
  } else if (from == to) {
    end = {24, 0, 0};
  }
  const int minutes =
      static_cast<int>(end.hour * 60 + end.minute) - static_cast<int>(begin.hour * 60 + begin.minute);
  const unsigned length =
      std::clamp(minutes < 0 ? 0u : static_cast<unsigned>(minutes), kShortestTimelapse, kMinutesOfDay);
  return {Joined(begin, end), length * 60};
}

int TimelapseSeconds(int asked) {
  return asked < 10 || asked > 300 ? 120 : asked;
}

unsigned TimelapseInterval(int clipSeconds, unsigned spanMinutes) {
  const double picturesAMinute = static_cast<double>(clipSeconds) * kTimelapseRate / spanMinutes;
  return static_cast<unsigned>(60000.0 / picturesAMinute);
}

}  // namespace record
