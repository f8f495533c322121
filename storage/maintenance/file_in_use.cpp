#include "storage/maintenance/file_in_use.h"

#include "record/task_manager.h"
#include "storage/layout.h"
#include "storage/lock_state.h"

namespace record {
namespace {

// Tasks compose their paths with one slash; what a caller put in front may have more.
std::string SingleSlashes(const std::string& path) {
  if (path.find("//") == std::string::npos) return path;
  std::string single;
  for (const char c : path) {
    if (c != '/' || single.empty() || single.back() != '/') single += c;
  }
  return single;
}

}  // namespace

bool IsWrittenByTask(const std::string& path) {
  return TaskManagerFileUsing(SingleSlashes(path).c_str()) == 1;
}

bool IsDirectoryOfTask(const std::string& path) {
  return TaskManagerDirUsing(SingleSlashes(path).c_str()) == 1;
}

bool IsFileInUse(const std::string& directory, const std::string& name) {
  if (!IsRecordFileName(name.c_str())) return IsDirectoryOfTask(directory);
  const std::string recordName = RecordNameOf(name);
  const std::string path = SingleSlashes(JoinPath(directory, recordName));
  if (IsWrittenByTask(path) || TaskManagerIsFileUsing(path.c_str()) == 1) return true;
  const std::string day = directory.substr(directory.rfind('/') + 1);
  const bool isLocked =
      IsDayName(day.c_str()) && GetLockState(LockFilePath(JoinPath(day, recordName).c_str())) == LockState::Held;
  return isLocked || HasWriter(path);
}

}  // namespace record
