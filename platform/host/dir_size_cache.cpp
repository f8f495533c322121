// Directory sizes, remembered for a minute at most and not beyond a change in the directory.
#include <sys/stat.h>

#include <mutex>
#include <string>
#include <unordered_map>

#include "record/platform.h"

namespace {

// Files that are being written grow without a change of their directory: hence the short life.
constexpr unsigned long long kLifeMs = 60000;
constexpr size_t kMostEntries = 1024;

struct DirSize {
  int kib;
  struct timespec changed;
  unsigned long long savedAt;
};

std::mutex g_mutex;

std::unordered_map<std::string, DirSize>& Sizes() {
  static auto* sizes = new std::unordered_map<std::string, DirSize>;  // threads may outlive main
  return *sizes;
}

bool ChangeTime(const char* directory, struct timespec* changed) {
  struct stat status;
  if (directory == nullptr || stat(directory, &status) != 0) return false;
  *changed = status.st_mtim;
  return true;
}

bool StillHolds(const DirSize& size, const struct timespec& changed) {
  return size.changed.tv_sec == changed.tv_sec && size.changed.tv_nsec == changed.tv_nsec &&
         GetCurrentTimeStamp_u64() - size.savedAt < kLifeMs;
}

}  // namespace

int LoadDirSpaceFromCache(const char* directory) {
  struct timespec changed;
  if (!ChangeTime(directory, &changed)) return -1;
  std::lock_guard<std::mutex> guard(g_mutex);
  const auto found = Sizes().find(directory);
  if (found == Sizes().end()) return -1;
  if (StillHolds(found->second, changed)) return found->second.kib;
  Sizes().erase(found);
  return -1;
}

int SaveDirSpaceToCache(const char* directory, int kib) {
  struct timespec changed;
  if (!ChangeTime(directory, &changed)) return -1;
  std::lock_guard<std::mutex> guard(g_mutex);
  if (Sizes().size() >= kMostEntries) Sizes().clear();
  Sizes()[directory] = {kib, changed, GetCurrentTimeStamp_u64()};
  return 0;
}
