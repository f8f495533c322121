// Brings open record files to the medium once a second, so that a power cut costs at most about that much.
//
// Each medium has a background thread of its own while files are open on it: a share that hangs holds up nobody
// else. Record threads never wait for the medium here, except at the end of a file, which they sync themselves
// anyway.
#ifndef STORAGE_FILE_SYNCER_H
#define STORAGE_FILE_SYNCER_H

#include <sys/types.h>

#include <atomic>
#include <condition_variable>
#include <ctime>
#include <list>
#include <mutex>
#include <set>
#include <string>

namespace record {

class FileSyncer {
 public:
  static FileSyncer& Get();

  // Syncs the directories of `path` and the files beside it soon, then the file and its neighbours at every
  // interval. `failed` is set to 1 when a sync of the file fails; the file is then left alone, because a later
  // sync would report success over what the failed one lost. Both stay the caller's; REQUIRES: Remove(file)
  // before either goes.
  void Add(int file, const std::string& path, std::atomic<int>* failed);
  // Forgets the file. Waits while it is just being synced.
  void Remove(int file);

  void SetInterval(int milliseconds);  // 0: no background syncs

  void SyncAll();  // one pass over all media, on the calling thread
  // The pass that makes a finished file's side file and name survive.
  static void SyncNeighbours(const std::string& path);

 private:
  struct Entry {
    int file;
    dev_t medium;
    std::string path;
    std::atomic<int>* failed;
    bool isNew;
    bool busy;
    bool dead;
    struct timespec syncedInfo;  // times of change of the neighbours as they were last synced
    struct timespec syncedIndex;
  };

  static void* Thread(void* medium);
  void Run(dev_t medium);
  void StartThread(dev_t medium);
  bool HasFiles(dev_t medium) const;
  bool HasNewFile(dev_t medium) const;
  void Sync(std::unique_lock<std::mutex>& lock, dev_t medium, bool newOnly);
  void SyncOne(std::unique_lock<std::mutex>& lock, Entry& entry);
  template <typename Step>
  void ForEach(dev_t medium, bool newOnly, const Step& step);
  template <typename Step>
  void Unlocked(std::unique_lock<std::mutex>& lock, Entry& entry, const Step& step);

  std::mutex m_mutex;
  std::condition_variable m_changed;
  std::list<Entry> m_entries;  // guarded by m_mutex; a busy entry is not removed
  std::set<dev_t> m_threads;   // media whose thread runs
  int m_intervalMs = 1000;
};

}  // namespace record

#endif
