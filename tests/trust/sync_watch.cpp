#include "tests/trust/sync_watch.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <string>
#include <thread>

namespace trust {
namespace {

std::atomic<Journal*> g_journal{nullptr};
std::atomic<int> g_stallMs{0};

FileNote* NoteOf(Journal& journal, int file) {
  char link[64];
  char path[1024];
  std::snprintf(link, sizeof link, "/proc/self/fd/%d", file);
  const ssize_t size = readlink(link, path, sizeof path);
  return size > 0 ? journal.Find(std::string(path, static_cast<size_t>(size))) : nullptr;
}

// A sync covers the packets whose writes had returned before it began.
template <typename Sync>
int Watched(int file, int stallMs, const Sync& sync) {
  Journal* journal = g_journal;
  if (journal == nullptr) return sync(file);
  FileNote* note = NoteOf(*journal, file);
  const std::uint32_t covered = note != nullptr ? note->returned.load() : 0;
  const std::int64_t begin = NowNs();
  const int result = sync(file);
  if (note != nullptr && stallMs > 0) std::this_thread::sleep_for(std::chrono::milliseconds(stallMs));
  journal->m_syncNs += NowNs() - begin;
  if (note != nullptr && result == 0) {
    note->longestSyncNs = std::max(note->longestSyncNs.load(), NowNs() - begin);
    const std::uint32_t meanwhile = note->returned - covered;
    if (note->syncs == 0 || meanwhile < note->leastWhileSyncing) note->leastWhileSyncing = meanwhile;
    const std::uint32_t n = note->syncs;  // one sync of a file at a time
    if (n < FileNote::kMaxSyncs) note->syncNotes[n] = {NowNs(), covered};
    note->syncs = n + 1;
  }
  return result;
}

}  // namespace

void WatchSyncs(Journal* journal) {
  g_journal = journal;
}

void StallSyncs(int milliseconds) {
  g_stallMs = milliseconds;
}

}  // namespace trust

extern "C" {

int __real_fsync(int file);
int __wrap_fsync(int file);
int __wrap_fsync(int file) {
  return trust::Watched(file, 0, __real_fsync);
}

int __real_fdatasync(int file);
int __wrap_fdatasync(int file);
int __wrap_fdatasync(int file) {
  return trust::Watched(file, trust::g_stallMs, __real_fdatasync);
}
}
