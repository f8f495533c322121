// Looking into an AVI record file, and giving one that lost its end a new one.
#ifndef FORMAT_AVI_AVI_REPAIR_H
#define FORMAT_AVI_AVI_REPAIR_H

#include "format/avi/avi_head.h"
#include "format/avi/avi_index_reader.h"
#include "format/frame_totals.h"

namespace record {

struct AviReport : FileReport {
  AviHead head;
  AviIndexState indexState = AviIndexState::NoFlag;  // of what stands where the header puts the index
  long long indexEntries = 0;
  FrameTotals totals;  // of all whole chunks, counted one by one; key frames as the index has them, else by bytes

  bool EndedWithoutFrames() const { return head.EndedWithoutFrames(fileSize); }
  // No frame needs one, or it names them: frames that no index names are found by a scan only.
  bool HasIndex() const;
};

// Reads every chunk head, passing over damage. A file that is `growing` has no index yet, and its last chunk may
// be half written.
AviReport InspectAvi(const char* path, bool growing = false);

// Gives a file without a usable index a new one, in place, right behind its last whole chunk, and its header the
// sizes. Chunks are never touched, and a file that has an index is not opened for writing. With `dryRun` nothing
// is written and the result tells what would be. If power fails meanwhile, the file is at worst as before.
// REQUIRES: nobody is writing the file.
FileRepair RepairAvi(const char* path, bool dryRun);

}  // namespace record

#endif
