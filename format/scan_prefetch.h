// Decides for a scan of packet heads whether the payloads between them shall be read as well.
#ifndef FORMAT_SCAN_PREFETCH_H
#define FORMAT_SCAN_PREFETCH_H

#include <chrono>

#include "format/file_source.h"

namespace record {

// A card answers a thousand small reads sooner than it hands out the megabytes between them; a disk does the
// opposite, and what is in memory already needs neither. So both ways are timed, stretch by stretch, and the
// faster one is kept, with a look at the other one now and then.
class ScanPrefetch {
 public:
  explicit ScanPrefetch(FileSource& source) : m_source(source) {}

  // The scan has come to this offset.
  void Reached(long long offset) {
    if (offset >= m_stretchEnd) BeginStretch(offset);
  }

 private:
  using Clock = std::chrono::steady_clock;

  void BeginStretch(long long offset);

  FileSource& m_source;
  Clock::time_point m_begun;
  long long m_stretchBegin = 0;
  long long m_stretchEnd = 0;
  double m_cost[2] = {0, 0};  // time a byte of file: without and with the payloads
  int m_stretches = 0;
  bool m_ahead = false;
};

}  // namespace record

#endif
