#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <new>
#include <string>

#include "base/directory.h"
#include "record/maintenance.h"
#include "storage/layout.h"
#include "storage/lock_state.h"
#include "storage/maintenance/file_in_use.h"

namespace record {
namespace {

// A name that is too long, as that of a side file may be, is none of a file.
bool Unlink(const Directory& directory, const std::string& name) {
  return unlinkat(directory.Descriptor(), name.c_str(), 0) == 0 || errno == ENOENT || errno == ENAMETOOLONG;
}

// The writer that left it is dead, and with the record nobody can repair goes the last one who would remove it.
void RemoveStaleLock(const std::string& parent, const std::string& name) {
  const std::string day = parent.substr(parent.rfind('/') + 1);
  if (!IsDayName(day.c_str())) return;
  const std::string lockFile = LockFilePath(JoinPath(day, name).c_str());
  if (GetLockState(lockFile) == LockState::Stale) unlink(lockFile.c_str());
}

int DeleteFree(const std::string& path) {
  const size_t slash = path.rfind('/');
  const std::string parent = slash == std::string::npos ? "." : path.substr(0, std::max<size_t>(slash, 1));
  const std::string name = path.substr(slash + 1);
  const Directory directory(parent);
  if (!directory.IsOpen()) return errno == ENOENT ? DELETE_DONE : DELETE_FAILED;
  if (IsFileInUse(parent, name)) return DELETE_IN_USE;
  if (!Unlink(directory, name)) return DELETE_FAILED;
  if (!IsRecordFileName(name.c_str()) || RecordNameOf(name) != name) return DELETE_DONE;
  if (!Unlink(directory, InfoPath(name))) return DELETE_FAILED;
  RemoveStaleLock(parent, name);
  return DELETE_DONE;
}

}  // namespace
}  // namespace record

int DeleteFreeFile(const char* path) {
  if (path == nullptr || path[0] == '\0') {
    errno = EINVAL;
    return DELETE_FAILED;
  }
  try {
    return record::DeleteFree(path);
  } catch (const std::bad_alloc&) {
    errno = ENOMEM;
    return DELETE_FAILED;
  }
}
