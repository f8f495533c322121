// recordctl days
#include <unistd.h>

#include <cstdio>
#include <list>
#include <map>
#include <set>

#include "base/clock.h"
#include "base/time_word.h"
#include "record/lookups.h"
#include "tools/recordctl/options.h"
#include "tools/recordctl/output.h"
#include "tools/recordctl/progress.h"
#include "tools/recordctl/root.h"
#include "tools/recordctl/time_text.h"

namespace recordctl {
namespace {

constexpr char kDaysFooter[] =
    "Examples:\n"
    "  recordctl days\n"
    "  recordctl --json days | jq -r .date\n"
    "\n"
    "One calendar a month, weeks from Monday on. Days without recordings are dots.";

constexpr long long kHalfADay = 43200;

using Month = std::pair<int, int>;                // year, month
using Calendar = std::map<Month, std::set<int>>;  // its days with recordings

Calendar ReadDays(const Options& options) {
  const Waiting waiting(options, "looking for days with recordings", "days");
  std::list<long> midnights;
  GetHasRecordDateList(midnights);
  Calendar calendar;
  for (const long midnight : midnights) {
    // Where winter has the daylight saving time (Ireland), midnight of standard time falls into the day before.
    const struct tm day = record::LocalTime(record::FromTimeWord(midnight) + kHalfADay);
    calendar[{day.tm_year + 1900, day.tm_mon + 1}].insert(day.tm_mday);
  }
  return calendar;
}

// Days of a month, and the weekday of the first (Monday is 0).
void Shape(const Month& month, int& days, int& firstWeekday) {
  struct tm first = {};
  first.tm_year = month.first - 1900;
  first.tm_mon = month.second - 1;
  first.tm_mday = 1;
  first.tm_hour = 12;
  first.tm_isdst = -1;
  struct tm last = first;
  mktime(&first);
  last.tm_mon += 1;
  last.tm_mday = 0;
  mktime(&last);
  firstWeekday = (first.tm_wday + 6) % 7;
  days = last.tm_mday;
}

void PrintMonth(const Month& month, const std::set<int>& marked, bool colours) {
  constexpr int kDaysAWeek = 7;
  int days = 0;
  int weekday = 0;
  Shape(month, days, weekday);
  WriteText("%04d-%02d\nMo Tu We Th Fr Sa Su\n%*s", month.first, month.second, weekday * 3, "");
  for (int day = 1; day <= days; ++day, ++weekday) {
    const char* end = day == days || weekday % kDaysAWeek == kDaysAWeek - 1 ? "\n" : " ";
    if (marked.count(day) == 0)
      WriteText(" .%s", end);
    else
      WriteText(colours ? "\x1b[1;32m%2d\x1b[0m%s" : "%2d%s", day, end);
  }
}

int Days(const Options& options) {
  if (!UseRoot(options)) return kFailed;
  const Calendar calendar = ReadDays(options);
  if (calendar.empty()) return Fail("no recordings in root " + options.root);
  const bool colours = isatty(STDOUT_FILENO) != 0;
  bool isFirst = true;
  for (const auto& [month, days] : calendar) {
    if (!options.json) {
      if (!isFirst) WriteText("\n");
      PrintMonth(month, days, colours);
    }
    for (const int day : days) {
      if (options.json) WriteJson({{"date", DateText({month.first, month.second, day})}});
    }
    isFirst = false;
  }
  return kOk;
}

}  // namespace

void AddDaysCommand(CLI::App& app, const Options& options, Action& action) {
  CLI::App* command = app.add_subcommand("days", "Calendar of the days that hold recordings");
  command->footer(kDaysFooter);
  command->callback([&options, &action] { action = [&options] { return Days(options); }; });
}

}  // namespace recordctl
