// Looking into a KMV file, and giving one that lost its end a new one.
#ifndef FORMAT_KMV_KMV_REPAIR_H
#define FORMAT_KMV_KMV_REPAIR_H

#include "format/frame_totals.h"
#include "format/kmv/kmv_end.h"
#include "format/kmv/kmv_scan.h"

namespace record {

struct KmvReport : FileReport {
  KmvVideoFileHead head = {};
  KmvEndState endState = KmvEndState::Missing;
  KmvEnd end = {};   // what is valid of it: see endState
  KmvTotals totals;  // of all whole packets, counted one by one

  const KmvMediaFields& Media() const { return endState == KmvEndState::Whole ? end.tail.media : head.media; }
};

// Reads every packet head, passing over damage. A file that is `growing` has no end yet, and its last packet may
// be half written.
KmvReport InspectKmv(const char* path, bool growing = false);

// Gives a file without a usable index and tail new ones, in place, right behind its last whole packet. The head
// and the packets are never touched, and a file that has both is not opened for writing. With `dryRun` nothing
// is written and the result tells what would be. If power fails meanwhile, the file is at worst as before.
// REQUIRES: nobody is writing the file.
FileRepair RepairKmv(const char* path, bool dryRun);

}  // namespace record

#endif
