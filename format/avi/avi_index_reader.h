// The index at the end of a finished file, entry by entry.
#ifndef FORMAT_AVI_AVI_INDEX_READER_H
#define FORMAT_AVI_AVI_INDEX_READER_H

#include <memory>

#include "format/avi/avi_format.h"
#include "format/file_source.h"

namespace record {

enum class AviIndexState { NoFlag, BadFlag, NoSize, NoEntries, Whole };

class AviIndexReader {
 public:
  explicit AviIndexReader(const FileSource& source) : m_source(source) {}

  // Whole: it stands at `offset` and lies within the file.
  AviIndexState Open(long long offset);
  std::uint32_t Flag() const { return m_head.id; }  // the word that stands there, unless NoFlag
  long long Count() const { return m_head.length / kAviIndexEntrySize; }
  long long End() const { return m_entries + Count() * kAviIndexEntrySize; }

  // False behind the last entry, or when it cannot be read: then Taken() is below Count().
  bool Next(AviIndexEntry& entry);
  long long Taken() const { return m_taken; }

 private:
  bool Fill();

  const FileSource& m_source;
  AviChunkHead m_head = {};
  long long m_entries = 0;  // where the first one stands
  long long m_taken = 0;
  std::unique_ptr<AviIndexEntry[]> m_block;
  std::size_t m_inBlock = 0;
  std::size_t m_blockSize = 0;
};

}  // namespace record

#endif
