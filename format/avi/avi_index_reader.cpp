#include "format/avi/avi_index_reader.h"

#include <algorithm>
#include <new>

namespace record {
namespace {

constexpr long long kBlockEntries = 4096;

}  // namespace

AviIndexState AviIndexReader::Open(long long offset) {
  m_entries = offset + kAviChunkHeadSize;
  m_taken = 0;
  m_inBlock = m_blockSize = 0;
  const std::size_t got = m_source.ReadAt(offset, &m_head, sizeof m_head);
  if (got < sizeof m_head.id) return AviIndexState::NoFlag;
  if (m_head.id != kAviIndexId) return AviIndexState::BadFlag;
  if (got < sizeof m_head) return AviIndexState::NoSize;
  return End() <= m_source.Size() ? AviIndexState::Whole : AviIndexState::NoEntries;
}

bool AviIndexReader::Next(AviIndexEntry& entry) {
  if (m_taken >= Count() || (m_inBlock == m_blockSize && !Fill())) return false;
  entry = m_block[m_inBlock++];
  ++m_taken;
  return true;
}

bool AviIndexReader::Fill() {
  const auto wanted = static_cast<std::size_t>(std::min(Count() - m_taken, kBlockEntries));
  if (!m_block) m_block.reset(new (std::nothrow) AviIndexEntry[kBlockEntries]);
  if (!m_block) return false;
  const std::size_t length = wanted * sizeof(AviIndexEntry);
  if (m_source.ReadAt(m_entries + m_taken * kAviIndexEntrySize, m_block.get(), length) != length) return false;
  m_inBlock = 0;
  m_blockSize = wanted;
  return true;
}

}  // namespace record
