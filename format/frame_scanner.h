// Walking the frames of a file by their heads, without reading what lies between them.
#ifndef FORMAT_FRAME_SCANNER_H
#define FORMAT_FRAME_SCANNER_H

#include <algorithm>
#include <cstring>

#include "format/file_source.h"
#include "format/scan_prefetch.h"

namespace record {

// The first place at `from`, from + step, ... whose four bytes match and lie whole before `end`; -1 when there is
// none, with *searchedTo where a later search has to go on.
template <typename Matches>
long long FindWord(FileWindow& window, long long from, long long end, int step, Matches matches,
                   long long* searchedTo) {
  constexpr std::size_t kWord = 4;
  long long at = from;
  while (at + static_cast<long long>(kWord) <= end) {
    std::size_t available = 0;
    const std::uint8_t* bytes = window.Fetch(at, kWord, &available);
    available = static_cast<std::size_t>(std::min<long long>(static_cast<long long>(available), end - at));
    if (available < kWord) break;
    std::size_t into = 0;
    for (; into <= available - kWord; into += static_cast<std::size_t>(step)) {
      if (matches(bytes + into)) return at + static_cast<long long>(into);
    }
    at += static_cast<long long>(into);
  }
  *searchedTo = at;
  return -1;
}

// Takes one frame head after the other. A Layout tells the container's ways:
//   Head                      as it stands in the file
//   kLookAt                   bytes that are read with every head, itself included
//   MayBegin(word)            whether the first four bytes of a head may be these
//   IsHead(head)              whether a frame begins like this where one is due
//   End(offset, head)         where that frame ends
//   LooksRight(window, head, frameEnd, fileEnd)  whether it is one, found in the midst of damage
template <typename Layout>
class FrameScanner {
 public:
  using Head = typename Layout::Head;

  // Frames are taken from `begin` up to `end`.
  FrameScanner(FileSource& source, long long begin, long long end)
      : m_window(source, kBlock, kBlockMax),
        m_ahead(source, kBlock, kBlockMax),
        m_prefetch(source),
        m_offset(begin),
        m_end(end) {}

  // The next frame that lies whole before the end. False at the end, and where no such frame stands: Offset()
  // then tells where.
  bool Next(Head& head, long long& offset) {
    m_torn = false;
    m_prefetch.Reached(m_offset);
    if (!ReadHead(m_offset, head)) return false;
    const long long next = Layout::End(m_offset, head);
    if (next > m_end) {
      m_torn = true;
      return false;
    }
    offset = m_offset;
    m_offset = next;
    return true;
  }

  // Goes on behind damage: at the next place that looks like a whole frame, wherever it stands. False: none.
  bool SkipDamage() {
    long long from = m_offset + 1;
    for (;;) {
      const long long found = FindWord(m_window, from, m_end, 1, Layout::MayBegin, &from);
      if (found < 0) return false;
      if (LooksWhole(found)) {
        m_offset = found;
        return true;
      }
      from = BehindFalse(found);
    }
  }

  FileWindow& Window() { return m_window; }

  long long Offset() const { return m_offset; }  // of the next frame
  bool AtEnd() const { return m_offset >= m_end; }
  // What stands there: a head whose frame is not whole, or anything else.
  bool IsTorn() const { return m_torn; }

 private:
  // Large enough for the small audio frames between two pictures, small enough to cost no more than a head.
  static constexpr std::size_t kBlock = 512;
  static constexpr std::size_t kBlockMax = 64 * 1024;

  // Each word that proves to be no frame may have cost a read: of too many, in bytes that were made to hold them,
  // the rest is passed over.
  static constexpr long long kStretch = 1024 * 1024;
  static constexpr int kMostFalse = 1024;  // a stretch

  // Where the search goes on.
  long long BehindFalse(long long found) {
    if (found >= m_stretchEnd) {
      m_stretchEnd = found + kStretch;
      m_false = 0;
    }
    return ++m_false < kMostFalse ? found + 1 : m_stretchEnd;
  }

  bool ReadHead(long long offset, Head& head) {
    if (offset + static_cast<long long>(sizeof(head)) > m_end) return false;
    std::size_t available = 0;
    const long long wanted = std::min<long long>(Layout::kLookAt, m_end - offset);
    const std::uint8_t* bytes = m_window.Fetch(offset, static_cast<std::size_t>(wanted), &available);
    if (available < sizeof(head)) return false;
    std::memcpy(&head, bytes, sizeof(head));
    return Layout::IsHead(head);
  }

  bool LooksWhole(long long offset) {
    Head head;
    if (!ReadHead(offset, head)) return false;
    const long long frameEnd = Layout::End(offset, head);
    return frameEnd <= m_end && Layout::LooksRight(m_ahead, head, frameEnd, m_end);
  }

  FileWindow m_window;
  FileWindow m_ahead;  // behind what may be a frame: the search goes on where it was, with what it had read
  ScanPrefetch m_prefetch;
  long long m_offset;
  const long long m_end;
  bool m_torn = false;
  long long m_stretchEnd = 0;
  int m_false = 0;  // words in the stretch that were no frames
};

}  // namespace record

#endif
