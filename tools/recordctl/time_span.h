// A span of local time that the user asks for, and the days that it is made of.
#ifndef RECORDCTL_TIME_SPAN_H
#define RECORDCTL_TIME_SPAN_H

#include <string>
#include <vector>

#include "export/job.h"
#include "tools/recordctl/time_text.h"

namespace recordctl {

// Seconds count from midnight of the first day on, a day having 86400 of them.
struct TimeSpan {
  Date day;
  long long from;
  long long to;
  long long Seconds() const { return to - from; }
};

// "2024-01-31 08:15:00" ('T' or a blank, seconds may be missing), or a time of day: today's for the begin, the
// begin's day's for the end, the next day's when it would lie before the begin. False: `error` is one line.
bool ParseSpan(const std::string& from, const std::string& to, TimeSpan& span, std::string& error);

// The pieces of the days that lie between. The last second counts, files that begin within it, too.
std::vector<record::ExportPiece> PiecesOf(const TimeSpan& span);

// Parts of at most so many seconds, each beginning with the second behind the one before.
std::vector<TimeSpan> PartsOf(const TimeSpan& span, long long seconds);

long long MomentMs(const TimeSpan& span, long long second);  // milliseconds since 1970

}  // namespace recordctl

#endif
