// The index of a file that is being written, kept in memory until the file ends.
#ifndef FORMAT_AVI_AVI_INDEX_LIST_H
#define FORMAT_AVI_AVI_INDEX_LIST_H

#include <sys/uio.h>

#include <memory>
#include <vector>

#include "format/avi/avi_format.h"

namespace record {

// Grows block by block: no frame waits for old entries to be copied.
class AviIndexList {
 public:
  void Clear();
  // False when there is no memory, or the list is as long as one write can take.
  bool Add(const AviIndexEntry& entry);

  long long Count() const { return m_count; }
  const AviIndexEntry& Last() const { return m_blocks.back()[(m_count - 1) % kBlockEntries]; }
  std::size_t Bytes() const { return static_cast<std::size_t>(m_count) * sizeof(AviIndexEntry); }
  // All entries in a row, to be written behind what `parts` holds already.
  void AppendTo(std::vector<struct iovec>& parts) const;

 private:
  static constexpr long long kBlockEntries = 4096;
  static constexpr std::size_t kMostBlocks = 1000;  // below what writev takes; a file has an hour, this is eight

  std::vector<std::unique_ptr<AviIndexEntry[]>> m_blocks;
  long long m_count = 0;
};

}  // namespace record

#endif
