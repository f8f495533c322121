// The spans that exports work on, made from what callers ask for.
#ifndef EXPORT_SPAN_H
#define EXPORT_SPAN_H

#include "record/export.h"

namespace record {

constexpr unsigned kMinutesOfDay = 24 * 60;

struct ExportSpan {
  DayTimeSpan span;
  unsigned length;  // seconds
  unsigned Begin() const { return span.beginHour * 3600u + span.beginMinute * 60u + span.beginSecond; }
  unsigned End() const { return span.endHour * 3600u + span.endMinute * 60u + span.endSecond; }
};

// At most ten minutes.
ExportSpan NormaliseRecordSpan(const DayTimeSpan& asked);
// `length` is that of the whole minutes, at least an hour.
ExportSpan NormaliseTimelapseSpan(const DayTimeSpan& asked);

int TimelapseSeconds(int asked);  // 10 to 300, else 120
// Milliseconds of recording between two pictures of a clip of so many seconds. REQUIRES: both above 0
unsigned TimelapseInterval(int clipSeconds, unsigned spanMinutes);

}  // namespace record

#endif
