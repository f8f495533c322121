// What an AVI record file holds: from its index, or from a scan when it has none.
#ifndef FORMAT_AVI_AVI_CONTENTS_H
#define FORMAT_AVI_AVI_CONTENTS_H

#include <vector>

#include "format/avi/avi_scan.h"

namespace record {

struct AviContents {
  bool indexed = false;   // false: found by a scan, the file may still grow
  long long dataEnd = 0;  // behind the last chunk, and the padding of an indexed file
  FrameTotals totals;
  std::uint32_t framerate = 0;  // frames a second, 25 when the header has none
  std::uint32_t duration = 0;   // whole seconds, by the frame rate
  long long firstKey = -1;      // where the first key frame's chunk stands; -1: none

  // Where the last key frame of each second stands, one second a slot. 0: none so far, or none in that second.
  std::vector<long long> slots;
  std::vector<std::uint32_t> keyNumbers;  // how many video frames come before it

  // The seconds that can be sought.
  int Seconds() const;
};

// Reads the index; without a usable one scans the chunks. False when there is neither, or no memory.
bool AviReadContents(FileSource& source, const AviHead& head, AviContents& contents);

}  // namespace record

#endif
