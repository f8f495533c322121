// The bounded list of the oldest files.
#ifndef STORAGE_MAINTENANCE_OLDEST_FILES_H
#define STORAGE_MAINTENANCE_OLDEST_FILES_H

#include <functional>
#include <map>
#include <memory_resource>

#include "record/maintenance.h"

namespace record {

// Takes over a list of nodes, offers files to it, and gives it back with Release.
class OldestFiles {
 public:
  OldestFiles(OldFileInfo_s* head, unsigned maxCount, unsigned count);
  ~OldestFiles();
  OldestFiles(const OldestFiles&) = delete;
  OldestFiles& operator=(const OldestFiles&) = delete;

  // Whether Offer would keep a file of that time, so that others need no path.
  bool Wants(long long time) const;
  void Offer(long long time, const char* directory, const char* name);

  bool IsFull() const { return m_count >= m_maxCount; }
  unsigned Count() const { return m_count; }
  OldFileInfo_s* Release();  // newest first

 private:
  OldFileInfo_s* TakeNode();
  void Insert(long long time, OldFileInfo_s* node);

  using Files = std::pmr::multimap<long long, OldFileInfo_s*, std::greater<>>;

  // The places stand side by side, apart from the files' paths: a search among many touches few pages. None is
  // ever given back: one that a newer file had goes to the next file.
  std::pmr::monotonic_buffer_resource m_memory;
  Files m_files{&m_memory};
  Files::node_type m_spare;
  const unsigned m_maxCount;
  unsigned m_count;
};

}  // namespace record

#endif
