// Telling a lock file that a writer holds from one that a crash left behind.
#ifndef STORAGE_LOCK_STATE_H
#define STORAGE_LOCK_STATE_H

#include <string>

namespace record {

enum class LockState {
  None,   // no such file
  Stale,  // left behind: nobody writes the record any more
  Held,   // being written; also when that cannot be told
};

LockState GetLockState(const std::string& lockFile);

// Whether some process has the file open for writing. False also where the file system cannot tell (network
// shares): there the lock file alone decides.
bool HasWriter(const std::string& path);

}  // namespace record

#endif
