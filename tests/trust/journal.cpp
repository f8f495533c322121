#include "tests/trust/journal.h"

#include <sys/mman.h>

#include <algorithm>
#include <ctime>

namespace trust {

static_assert(std::atomic<std::int64_t>::is_always_lock_free, "two processes share it");

std::int64_t NowNs() {
  struct timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return now.tv_sec * 1000000000LL + now.tv_nsec;
}

std::uint32_t FileNote::WholeGroups(std::uint32_t count) const {
  while (count > 0 && !packets[count - 1].key) --count;
  return count > 0 ? count - 1 : 0;
}

long long FileNote::SyncedAt(std::int64_t moment) const {
  long long covered = -1;
  for (std::uint32_t n = 0; n < std::min(syncs.load(), kMaxSyncs); ++n) {
    if (syncNotes[n].returnedNs <= moment) covered = std::max<long long>(covered, syncNotes[n].covered);
  }
  return covered;
}

// Fresh pages are zero, and all of it begins as zero.
Journal* Journal::Create() {
  void* memory = mmap(nullptr, sizeof(Journal), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  return memory == MAP_FAILED ? nullptr : static_cast<Journal*>(memory);
}

void Journal::Destroy(Journal* journal) {
  munmap(journal, sizeof(Journal));
}

FileNote* Journal::NewFile() {
  const int n = m_fileCount++;
  return n < kMaxFiles ? &m_files[n] : nullptr;
}

int Journal::FileCount() const {
  return std::min(m_fileCount.load(), kMaxFiles);
}

FileNote* Journal::Find(const std::string& path) {
  for (int n = 0; n < FileCount(); ++n) {
    if (m_files[n].begunNs != 0 && path == m_files[n].path) return &m_files[n];
  }
  return nullptr;
}

}  // namespace trust
