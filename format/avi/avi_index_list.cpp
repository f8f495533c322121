#include "format/avi/avi_index_list.h"

#include <algorithm>
#include <new>

namespace record {

void AviIndexList::Clear() {
  m_blocks.clear();
  m_count = 0;
}

bool AviIndexList::Add(const AviIndexEntry& entry) {
  const auto at = static_cast<std::size_t>(m_count % kBlockEntries);
  if (at == 0) {
    std::unique_ptr<AviIndexEntry[]> block;
    if (m_blocks.size() < kMostBlocks) block.reset(new (std::nothrow) AviIndexEntry[kBlockEntries]);
    if (!block) return false;
    m_blocks.push_back(std::move(block));
  }
  m_blocks.back()[at] = entry;
  ++m_count;
  return true;
}

void AviIndexList::AppendTo(std::vector<struct iovec>& parts) const {
  long long left = m_count;
  for (const auto& block : m_blocks) {
    const long long entries = std::min(left, kBlockEntries);
    parts.push_back({block.get(), static_cast<std::size_t>(entries * kAviIndexEntrySize)});
    left -= entries;
  }
}

}  // namespace record
