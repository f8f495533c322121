#include "storage/file_syncer.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <memory>

#include "base/log.h"
#include "record/storage.h"
#include "storage/layout.h"

namespace record {
namespace {

std::string ParentOf(const std::string& path) {
  const size_t slash = path.rfind('/');
  return slash == std::string::npos || slash == 0 ? "/" : path.substr(0, slash);
}

dev_t MediumOf(int file) {
  struct stat status;
  return fstat(file, &status) == 0 ? status.st_dev : 0;
}

void SyncPath(const std::string& path, int flags) {
  const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | flags);
  if (file < 0) return;
  fsync(file);
  close(file);
}

// Even the sync of a file without changes makes the medium empty its cache, which is slow on a card: it is spared
// while the file's time of change is the one noted in `synced`.
void SyncIfChanged(const std::string& path, struct timespec& synced) {
  struct stat status;
  if (stat(path.c_str(), &status) != 0) return;
  if (status.st_mtim.tv_sec == synced.tv_sec && status.st_mtim.tv_nsec == synced.tv_nsec) return;
  synced = status.st_mtim;
  SyncPath(path, 0);
}

// The entries of the file, its day directory and its kind directory may all be new.
void SyncDirectories(const std::string& path) {
  constexpr int kLevels = 3;
  std::string directory = path;
  for (int level = 0; level < kLevels; ++level) {
    directory = ParentOf(directory);
    SyncPath(directory, O_DIRECTORY);
  }
}

}  // namespace

FileSyncer& FileSyncer::Get() {
  static FileSyncer* syncer = new FileSyncer;  // outlives the detached thread
  return *syncer;
}

void FileSyncer::Add(int file, const std::string& path, std::atomic<int>* failed) {
  const dev_t medium = MediumOf(file);
  std::lock_guard<std::mutex> lock(m_mutex);
  m_entries.push_back({file, medium, path, failed, true, false, false, {}, {}});
  if (m_intervalMs > 0) StartThread(medium);
  m_changed.notify_all();
}

void FileSyncer::Remove(int file) {
  std::unique_lock<std::mutex> lock(m_mutex);
  const auto entry =
      std::find_if(m_entries.begin(), m_entries.end(), [&](const Entry& e) { return e.file == file; });
  if (entry == m_entries.end()) return;
  m_changed.wait(lock, [&] { return !entry->busy; });
  m_entries.erase(entry);
  m_changed.notify_all();
}

void FileSyncer::SetInterval(int milliseconds) {
  std::lock_guard<std::mutex> lock(m_mutex);
  m_intervalMs = std::max(milliseconds, 0);
  for (const Entry& entry : m_entries) {
    if (m_intervalMs > 0) StartThread(entry.medium);
  }
  m_changed.notify_all();
}

void FileSyncer::SyncNeighbours(const std::string& path) {
  SyncPath(InfoPath(path), 0);
  SyncPath(TypeIndexPath(ParentOf(path)), 0);
  SyncDirectories(path);
}

// Runs `step` without the lock; the busy mark keeps the entry and its descriptor alive meanwhile.
template <typename Step>
void FileSyncer::Unlocked(std::unique_lock<std::mutex>& lock, Entry& entry, const Step& step) {
  entry.busy = true;
  lock.unlock();
  step();
  lock.lock();
  entry.busy = false;
  m_changed.notify_all();
}

// The step for every entry that nobody else is at. Entries come and go between two steps, never the one at hand.
template <typename Step>
void FileSyncer::ForEach(dev_t medium, bool newOnly, const Step& step) {
  for (Entry& entry : m_entries) {
    if (entry.medium == medium && !entry.dead && !entry.busy && (entry.isNew || !newOnly)) step(entry);
  }
}

void FileSyncer::SyncOne(std::unique_lock<std::mutex>& lock, Entry& entry) {
  const bool isNew = entry.isNew;
  bool ok = false;
  entry.isNew = false;
  Unlocked(lock, entry, [&] {
    ok = fdatasync(entry.file) == 0;
    SyncIfChanged(InfoPath(entry.path), entry.syncedInfo);
    SyncIfChanged(TypeIndexPath(ParentOf(entry.path)), entry.syncedIndex);
    if (!isNew) return;
    SyncPath(FileListPath(ParentOf(entry.path)), 0);
    SyncDirectories(entry.path);
  });
  if (ok) return;
  entry.dead = true;
  entry.failed->store(1);
}

void FileSyncer::SyncAll() {
  std::unique_lock<std::mutex> lock(m_mutex);
  std::set<dev_t> media;
  for (const Entry& entry : m_entries) media.insert(entry.medium);
  for (const dev_t medium : media) Sync(lock, medium, false);
}

// The data of all files is on its way before any file is waited for: the file system then brings them home with
// one commit of its journal instead of one each. What comes of it is for the sync to tell.
void FileSyncer::Sync(std::unique_lock<std::mutex>& lock, dev_t medium, bool newOnly) {
  ForEach(medium, newOnly, [&](Entry& entry) {
    Unlocked(lock, entry, [&] { sync_file_range(entry.file, 0, 0, SYNC_FILE_RANGE_WRITE); });
  });
  ForEach(medium, newOnly, [&](Entry& entry) { SyncOne(lock, entry); });
}

void FileSyncer::StartThread(dev_t medium) {
  if (m_threads.count(medium) != 0) return;
  pthread_t thread;
  auto argument = std::make_unique<dev_t>(medium);
  const int error = pthread_create(&thread, nullptr, Thread, argument.get());
  if (error != 0) {  // the next Add tries again
    RECORD_LOG("no thread for background syncs, err=%s\n\n", std::strerror(error));
    return;
  }
  static_cast<void>(argument.release());  // the thread's
  pthread_detach(thread);
  m_threads.insert(medium);
}

void* FileSyncer::Thread(void* argument) {
  const std::unique_ptr<dev_t> medium(static_cast<dev_t*>(argument));
  prctl(PR_SET_NAME, "RecordSync");
  Get().Run(*medium);
  return nullptr;
}

bool FileSyncer::HasFiles(dev_t medium) const {
  return std::any_of(m_entries.begin(), m_entries.end(), [&](const Entry& e) { return e.medium == medium; });
}

// One that another thread is just at does not count: waiting for it without letting the lock go would be for ever.
bool FileSyncer::HasNewFile(dev_t medium) const {
  return std::any_of(m_entries.begin(), m_entries.end(),
                     [&](const Entry& e) { return e.medium == medium && e.isNew && !e.busy && !e.dead; });
}

// Passes begin an interval apart however long they take, or the medium's own time would come on top of what a
// power cut costs. A file that has just been added is synced at once.
void FileSyncer::Run(dev_t medium) {
  using Clock = std::chrono::steady_clock;
  std::unique_lock<std::mutex> lock(m_mutex);
  Clock::time_point next = Clock::now();
  while (HasFiles(medium) && m_intervalMs > 0) {
    const bool isDue = Clock::now() >= next;
    if (isDue) next = Clock::now() + std::chrono::milliseconds(m_intervalMs);
    Sync(lock, medium, !isDue);
    m_changed.wait_until(lock, next, [&] { return !HasFiles(medium) || m_intervalMs == 0 || HasNewFile(medium); });
  }
  m_threads.erase(medium);
}

}  // namespace record

void SetRecordSyncInterval(int milliseconds) {
  record::FileSyncer::Get().SetInterval(milliseconds);
}
