// The frame rates that a finished file tells: those that were measured while it was recorded.
#ifndef FORMAT_MEASURED_RATE_H
#define FORMAT_MEASURED_RATE_H

#include <cstdint>

#include "record/types.h"

namespace record {

// Frames within that many milliseconds a second, rounded half up; the configured rate when the span is not above
// 0. A video rate is kept within configured - 5 .. configured.
int MeasuredVideoRate(long long frames, double milliseconds, int configured);
int MeasuredAudioRate(long long frames, double milliseconds, int configured);

// The video rate of a file that took `milliseconds` to record, with its two log lines. Frames of the recorded past
// do not count; `preRecorded` is cut to what fits into its seconds.
int CalVideoFramerate(int videoFrames, std::int32_t& preRecorded, double milliseconds,
                      const RECORD_TASK_PARAM& param);

}  // namespace record

#endif
