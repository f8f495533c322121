#include "storage/lock_state.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <ctime>
#include <memory>

#include "base/clock.h"

namespace record {
namespace {

struct CloseFile {
  void operator()(std::FILE* file) const { std::fclose(file); }
};

// A writer creates the file first and locks it then, microseconds later: a file this young is given some time,
// also so that the look at its lock cannot be what keeps the writer from it.
constexpr time_t kYoungSeconds = 1;
constexpr int kPatienceMs = 50;

bool IsYoung(const struct stat& status) {
  const time_t age = time(nullptr) - status.st_ctime;
  return age >= 0 && age <= kYoungSeconds;
}

// The kernel's list of locks, for all who may not open the file (its mode is 0). The device numbers there are
// not those of stat() on layered file systems, so the inode alone decides. 1 listed, 0 not, -1 unknown.
int IsListed(ino_t inode) {
  const std::unique_ptr<std::FILE, CloseFile> list(std::fopen("/proc/locks", "re"));
  if (list == nullptr) return -1;
  char line[256];
  while (std::fgets(line, sizeof line, list.get()) != nullptr) {
    unsigned long long listed = 0;
    // "1: FLOCK  ADVISORY  WRITE 1234 fd:01:5678 0 EOF"
    if (std::sscanf(line, "%*s FLOCK %*s %*s %*s %*x:%*x:%llu", &listed) == 1 && listed == inode) return 1;
  }
  return 0;
}

}  // namespace

LockState GetLockState(const std::string& lockFile) {
  struct stat status;
  if (lstat(lockFile.c_str(), &status) != 0)
    return errno == ENOENT || errno == ENOTDIR ? LockState::None : LockState::Held;
  if (IsYoung(status)) SleepMs(kPatienceMs);
  const int listed = IsListed(status.st_ino);
  if (listed > 0) return LockState::Held;
  const int file = open(lockFile.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
  if (file < 0) return listed == 0 ? LockState::Stale : LockState::Held;
  // Finds holders that the list hides from this process, those in another container.
  const bool free = flock(file, LOCK_SH | LOCK_NB) == 0;
  close(file);
  return free ? LockState::Stale : LockState::Held;
}

// The kernel grants a read lease only on a file that nobody has open for writing. One who opens it meanwhile waits
// for the end of the lease, and the signal that tells of him must not be the usual one, which ends the process.
bool HasWriter(const std::string& path) {
  const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
  if (file < 0) return false;
  fcntl(file, F_SETSIG, SIGURG);
  const bool refused = fcntl(file, F_SETLEASE, F_RDLCK) != 0 && errno == EAGAIN;
  close(file);
  return refused;
}

}  // namespace record
