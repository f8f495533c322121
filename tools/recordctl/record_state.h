// What can be told of a record file from outside: its lock, its side file, how it ended.
#ifndef RECORDCTL_RECORD_STATE_H
#define RECORDCTL_RECORD_STATE_H

#include <string>

#include "record/types.h"
#include "storage/lock_state.h"
#include "tools/recordctl/contents.h"

namespace recordctl {

enum class Ending { kComplete, kRecording, kInterrupted };
const char* EndingName(Ending ending);  // "complete", "recording", "interrupted"

record::LockState LockOf(const std::string& recordFile);

// Whether some process writes the file: it holds the lock, or has the file open for writing.
bool IsBeingRecorded(const std::string& recordFile);

struct SideFile {
  enum State { kMissing, kWrongSize, kRead };
  State state = kMissing;
  RecordInfoStruct info = {};

  // As it is written at the begin of a file: nothing counted yet, the end is the planned one.
  bool IsBeginState() const { return info.videoFrames == 0 && info.audioFrames == 0; }
};
SideFile ReadSideFile(const std::string& recordFile);

Ending EndingOf(const std::string& recordFile);

// Time stamps of pictures belong to the wall clock up to this long behind the begin of their file.
constexpr long long kLongestFileMs = 2 * 3600 * 1000;

// Milliseconds since 1970.
long long StartMs(const RecordInfoStruct& info);
long long EndMs(const RecordInfoStruct& info);
// Wall clock of the last frame of a file that began at `startMs`, whatever its side file says.
long long LastFrameMs(const Contents& contents, long long startMs);

// From the file's name and day directory, milliseconds since 1970; -1 when they tell no time.
long long NamedStartMs(const std::string& recordFile);

// How the side file differs from what the file holds, "" when it does not. A copy outside the tree needs none.
std::string SideFileComplaint(const std::string& recordFile, const SideFile& side,
                              const record::FrameTotals& totals);

}  // namespace recordctl

#endif
