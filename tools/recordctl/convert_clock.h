// The library's clocks while frames are written that were recorded long ago: they stand still but for what is set
// here, so that names, side files, indexes and measured rates are those of the recording.
#ifndef RECORDCTL_CONVERT_CLOCK_H
#define RECORDCTL_CONVERT_CLOCK_H

namespace recordctl {

class ConvertClock {
 public:
  // Milliseconds since 1970 at which the recording began. One at a time, before any thread of the library runs.
  explicit ConvertClock(long long startMs);
  ~ConvertClock();
  ConvertClock(const ConvertClock&) = delete;
  ConvertClock& operator=(const ConvertClock&) = delete;

  static void SetElapsed(long long ms);  // since the start; time does not run back
  static long long Elapsed();
};

}  // namespace recordctl

#endif
