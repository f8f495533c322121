#include "tests/record/file_faults.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <cstdarg>
#include <cstdio>
#include <mutex>
#include <utility>

namespace fake {
namespace {

struct Rule {
  FileCall call;
  std::string part;
  int k;
  bool forEver;
  int error;
  int calls;
};

std::mutex g_mutex;
Rule g_rule;
std::atomic<bool> g_active{false};

std::string PathOf(int file) {
  char link[64];
  char path[1024];
  std::snprintf(link, sizeof link, "/proc/self/fd/%d", file);
  const ssize_t size = readlink(link, path, sizeof path);
  return size > 0 ? std::string(path, static_cast<size_t>(size)) : "";
}

bool Matches(const std::string& path, const std::string& part) {
  if (part.back() != '$') return path.find(part) != std::string::npos;
  const size_t length = part.size() - 1;
  return path.size() >= length && path.compare(path.size() - length, length, part, 0, length) == 0;
}

// Whether this call is to fail; errno is set then.
bool Fails(FileCall call, const std::string& path) {
  const std::lock_guard<std::mutex> lock(g_mutex);
  if (!g_active || g_rule.call != call || !Matches(path, g_rule.part)) return false;
  const int number = ++g_rule.calls;
  if (number != g_rule.k && !(g_rule.forEver && number > g_rule.k)) return false;
  errno = g_rule.error;
  return true;
}

bool FailsOn(FileCall call, int file) {
  return g_active && Fails(call, PathOf(file));
}

std::condition_variable g_hangEnds;
std::string g_hangPart;  // "" for none; guarded by g_mutex, as the count is
int g_hanging = 0;

void Hang(int file) {
  std::unique_lock<std::mutex> lock(g_mutex);
  if (g_hangPart.empty() || !Matches(PathOf(file), g_hangPart)) return;
  ++g_hanging;
  g_hangEnds.wait(lock, [] { return g_hangPart.empty(); });
  --g_hanging;
}

}  // namespace

FileHang::FileHang(std::string part) {
  const std::lock_guard<std::mutex> lock(g_mutex);
  g_hangPart = std::move(part);
}

FileHang::~FileHang() {
  const std::lock_guard<std::mutex> lock(g_mutex);
  g_hangPart.clear();
  g_hangEnds.notify_all();
}

int FileHang::Waiting() const {
  const std::lock_guard<std::mutex> lock(g_mutex);
  return g_hanging;
}

FileFault::FileFault(FileCall call, std::string part, int k, bool forEver, int error) {
  const std::lock_guard<std::mutex> lock(g_mutex);
  g_rule = {call, std::move(part), k, forEver, error, 0};
  g_active = true;
}

FileFault::~FileFault() {
  const std::lock_guard<std::mutex> lock(g_mutex);
  g_active = false;
}

int FileFault::Calls() const {
  const std::lock_guard<std::mutex> lock(g_mutex);
  return g_rule.calls;
}

}  // namespace fake

using fake::FailsOn;
using fake::FileCall;
using fake::Hang;

// The linker sends every call of the program here (`__wrap_name`) and gives the system's as `__real_name`. On
// some machines large-file support renames a call, so both names are taken.
extern "C" {

#define WRAP_OPEN(name)                                                                                \
  int __real_##name(const char* path, int flags, mode_t mode);                                         \
  int __wrap_##name(const char* path, int flags, ...);                                                 \
  int __wrap_##name(const char* path, int flags, ...) {                                                \
    va_list arguments;                                                                                 \
    va_start(arguments, flags);                                                                        \
    const mode_t mode = (flags & O_CREAT) != 0 ? static_cast<mode_t>(va_arg(arguments, unsigned)) : 0; \
    va_end(arguments);                                                                                 \
    if (fake::g_active && fake::Fails(FileCall::kOpen, path)) return -1;                               \
    return __real_##name(path, flags, mode);                                                           \
  }
WRAP_OPEN(open)
WRAP_OPEN(open64)

ssize_t __real_writev(int file, const struct iovec* parts, int count);
ssize_t __wrap_writev(int file, const struct iovec* parts, int count);
ssize_t __wrap_writev(int file, const struct iovec* parts, int count) {
  if (FailsOn(FileCall::kWrite, file)) return -1;
  if (FailsOn(FileCall::kShortWrite, file)) {
    // The first time half of the first part comes through, then nothing more.
    if (fake::g_rule.calls != fake::g_rule.k) return -1;
    fake::g_rule.forEver = true;
    const struct iovec half = {parts[0].iov_base, parts[0].iov_len / 2};
    return __real_writev(file, &half, 1);
  }
  if (FailsOn(FileCall::kSkipWrite, file)) {
    off_t size = 0;
    for (int i = 0; i < count; ++i) size += static_cast<off_t>(parts[i].iov_len);
    lseek(file, size, SEEK_CUR);
    return static_cast<ssize_t>(size);
  }
  return __real_writev(file, parts, count);
}

ssize_t __real_write(int file, const void* data, size_t size);
ssize_t __wrap_write(int file, const void* data, size_t size);
ssize_t __wrap_write(int file, const void* data, size_t size) {
  return FailsOn(FileCall::kWrite, file) ? -1 : __real_write(file, data, size);
}

#define WRAP_PWRITE(name)                                                              \
  ssize_t __real_##name(int file, const void* data, size_t size, off_t at);            \
  ssize_t __wrap_##name(int file, const void* data, size_t size, off_t at);            \
  ssize_t __wrap_##name(int file, const void* data, size_t size, off_t at) {           \
    return FailsOn(FileCall::kWrite, file) ? -1 : __real_##name(file, data, size, at); \
  }
WRAP_PWRITE(pwrite)
WRAP_PWRITE(pwrite64)

#define WRAP_PREAD(name)                                                              \
  ssize_t __real_##name(int file, void* data, size_t size, off_t at);                 \
  ssize_t __wrap_##name(int file, void* data, size_t size, off_t at);                 \
  ssize_t __wrap_##name(int file, void* data, size_t size, off_t at) {                \
    return FailsOn(FileCall::kRead, file) ? -1 : __real_##name(file, data, size, at); \
  }
WRAP_PREAD(pread)
WRAP_PREAD(pread64)

ssize_t __real_read(int file, void* data, size_t size);
ssize_t __wrap_read(int file, void* data, size_t size);
ssize_t __wrap_read(int file, void* data, size_t size) {
  return FailsOn(FileCall::kRead, file) ? -1 : __real_read(file, data, size);
}

#define WRAP_SYNC(name)                                               \
  int __real_##name(int file);                                        \
  int __wrap_##name(int file);                                        \
  int __wrap_##name(int file) {                                       \
    Hang(file);                                                       \
    return FailsOn(FileCall::kSync, file) ? -1 : __real_##name(file); \
  }
WRAP_SYNC(fsync)
WRAP_SYNC(fdatasync)
}
