// Media: whether they are mounted, how full they are; directories.
#include "record/storage.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <climits>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <system_error>
#include <thread>

#include "base/log.h"
#include "record/platform.h"

namespace {

constexpr const char* kMedia[] = {"/mnt/mmc0", "/mnt/mmc1", "/mnt/usb", "/tmp/network"};
constexpr int kMediumCount = 4;
constexpr double kBytesPerMb = 1048576.0;

bool IsDirectory(const char* path) {
  struct stat status;
  return stat(path, &status) == 0 && S_ISDIR(status.st_mode);
}

// Kernels before 5.8 do not say; there a mount shows by its device number (a bind mount of the same file
// system is not seen).
bool DiffersFromParent(const std::string& path) {
  struct stat own;
  struct stat parent;
  if (stat(path.c_str(), &own) != 0 || stat((path + "/..").c_str(), &parent) != 0) return false;
  return own.st_dev != parent.st_dev || own.st_ino == parent.st_ino;
}

bool IsMountPoint(const char* path) {
#ifdef STATX_ATTR_MOUNT_ROOT
  struct statx status;
  if (statx(AT_FDCWD, path, 0, STATX_TYPE, &status) == 0 &&
      (status.stx_attributes_mask & STATX_ATTR_MOUNT_ROOT) != 0) {
    return (status.stx_attributes & STATX_ATTR_MOUNT_ROOT) != 0;
  }
#endif
  return DiffersFromParent(path);
}

bool QueryMedium(int medium, struct statvfs* space) {
  if (medium < 0 || medium >= kMediumCount) return false;
  return statvfs(DevicePath(kMedia[medium]).c_str(), space) == 0;
}

// Below a device root nobody mounts anything: the directory stands for the medium.
bool IsMounted(const std::string& root) {
  return IsDirectory(root.c_str()) && (GetDeviceRoot()[0] != '\0' || IsMountPoint(root.c_str()));
}

// Looks whether the network share is there, from a thread of its own: one whose server is away may hang for ever,
// and a recording must not hang with it. While a look hangs, the share counts as away and nobody looks again.
class ShareLook {
 public:
  static bool IsMounted(const std::string& root) {
    static auto* last = new std::shared_ptr<ShareLook>;
    static auto* mutex = new std::mutex;
    const std::lock_guard<std::mutex> lock(*mutex);
    if (*last != nullptr && !(*last)->m_isDone) return false;
    const auto look = std::make_shared<ShareLook>();
    try {
      std::thread([look, root] { look->End(::IsMounted(root)); }).detach();
    } catch (const std::system_error&) {  // no thread
      return false;
    }
    *last = look;
    return look->Await();
  }

 private:
  static constexpr int kPatienceMs = 500;

  void End(bool isMounted) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_isMounted = isMounted;
    m_isDone = true;
    m_ended.notify_all();
  }

  bool Await() {
    std::unique_lock<std::mutex> lock(m_mutex);
    if (m_ended.wait_for(lock, std::chrono::milliseconds(kPatienceMs), [this] { return m_isDone.load(); }))
      return m_isMounted;
    RECORD_LOG("the network share does not answer within %d ms: it counts as away\n", kPatienceMs);
    return false;
  }

  std::mutex m_mutex;
  std::condition_variable m_ended;
  std::atomic<bool> m_isDone{false};
  bool m_isMounted = false;  // guarded by m_mutex
};

}  // namespace

int DRIVER_isDeviceMounted(const char* root) {
  if (root == nullptr) return 0;
  const bool isShare = root == DevicePath(kMedia[kMediumCount - 1]);
  return (isShare ? ShareLook::IsMounted(root) : IsMounted(root)) ? 1 : 0;
}

int GetStorageFreeSpace(int medium) {
  struct statvfs space;
  if (!QueryMedium(medium, &space)) return -1;
  const double megabytes = static_cast<double>(space.f_bavail) * static_cast<double>(space.f_frsize) / kBytesPerMb;
  return megabytes < INT_MAX ? static_cast<int>(megabytes) : INT_MAX;
}

// Counted as df does: what is kept back for root is neither used nor free. A medium that cannot be asked is
// full.
double GetStorageUsedPercentage(int medium) {
  struct statvfs space;
  if (!QueryMedium(medium, &space)) return 100.0;
  const double used = static_cast<double>(space.f_blocks - space.f_bfree);
  const double usable = used + static_cast<double>(space.f_bavail);
  return usable > 0 ? used * 100.0 / usable : 100.0;
}

int SafeMakeDir(const char* path) {
  if (path == nullptr || path[0] == '\0') return -1;
  if (mkdir(path, 0755) == 0) return 0;
  if (errno == EEXIST) return IsDirectory(path) ? 0 : -1;
  if (errno != ENOENT) return -1;
  // The parents are the exception: they are made only when they turn out to be missing.
  const std::string whole(path);
  const size_t end = whole.find_last_not_of('/');
  const size_t slash = end == std::string::npos ? end : whole.rfind('/', end);
  if (slash == std::string::npos || slash == 0) return -1;
  if (SafeMakeDir(whole.substr(0, slash).c_str()) != 0) return -1;
  return mkdir(path, 0755) == 0 || (errno == EEXIST && IsDirectory(path)) ? 0 : -1;
}

int FileExist(const char* path) {
  return path != nullptr && access(path, F_OK) == 0 ? 1 : 0;
}
