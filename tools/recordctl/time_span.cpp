#include "tools/recordctl/time_span.h"

#include <algorithm>
#include <ctime>

#include "base/clock.h"

namespace recordctl {
namespace {

constexpr long long kDay = 86400;
constexpr long long kLongestDays = 31;

struct tm Noon(const Date& date, long long daysLater) {
  struct tm noon = record::CalendarTime(date.year, date.month, date.day + static_cast<int>(daysLater), 12);
  mktime(&noon);
  return noon;
}

long long DaysBetween(const Date& from, const Date& to) {
  struct tm a = Noon(from, 0);
  struct tm b = Noon(to, 0);
  const double days = std::difftime(mktime(&b), mktime(&a)) / static_cast<double>(kDay);
  return static_cast<long long>(days < 0 ? days - 0.5 : days + 0.5);
}

}  // namespace

bool ParseSpan(const std::string& from, const std::string& to, TimeSpan& span, std::string& error) {
  TimeText begin;
  TimeText end;
  for (const auto& [text, moment] : {std::pair{&from, &begin}, std::pair{&to, &end}}) {
    if (ParseTime(*text, *moment)) continue;
    error = "'" + *text + "' is not a time (YYYY-MM-DD HH:MM:SS or HH:MM:SS)";
    return false;
  }
  span.day = begin.hasDate ? begin.day : Today();
  span.from = begin.second;
  span.to = end.second + (end.hasDate ? DaysBetween(span.day, end.day) * kDay : 0);
  if (!end.hasDate && span.to < span.from) span.to += kDay;
  if (span.to <= span.from) error = "the span ends where it begins, or before";
  if (span.Seconds() > kLongestDays * kDay) error = "the span is longer than 31 days";
  return error.empty();
}

std::vector<record::ExportPiece> PiecesOf(const TimeSpan& span) {
  std::vector<record::ExportPiece> pieces;
  for (long long day = span.from / kDay; day * kDay < span.to || pieces.empty(); ++day) {
    const struct tm date = Noon(span.day, day);
    const long long begin = std::max(span.from - day * kDay, 0LL);
    const long long end = std::min(span.to - day * kDay, kDay);
    pieces.push_back({date.tm_year + 1900, date.tm_mon + 1, date.tm_mday, static_cast<unsigned>(begin),
                      static_cast<unsigned>(end), true});
  }
  return pieces;
}

std::vector<TimeSpan> PartsOf(const TimeSpan& span, long long seconds) {
  std::vector<TimeSpan> parts;
  for (long long from = span.from; from < span.to; from += seconds)
    parts.push_back({span.day, from, from + seconds < span.to ? from + seconds - 1 : span.to});
  return parts;
}

long long MomentMs(const TimeSpan& span, long long second) {
  struct tm moment = Noon(span.day, second / kDay);
  moment.tm_hour = static_cast<int>(second % kDay / 3600);
  moment.tm_min = static_cast<int>(second / 60 % 60);
  moment.tm_sec = static_cast<int>(second % 60);
  moment.tm_isdst = -1;
  return static_cast<long long>(mktime(&moment)) * 1000;
}

}  // namespace recordctl
