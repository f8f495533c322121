// The frames of one medium that were written or shown last, to find in them where the next file begins:
// neighbouring files share up to a group of pictures and a second. For files whose stamps count from their own
// begin; the others are told by their stamps, see RepeatedFrames.
#ifndef FORMAT_FRAME_TAIL_H
#define FORMAT_FRAME_TAIL_H

#include <cstdint>
#include <deque>

#include "format/media_file.h"

namespace record {

class FrameTail {
 public:
  void Remember(const MediaFrame& frame, long long timeMs);

  bool IsEmpty() const { return m_frames.empty(); }
  long long LastMs() const { return m_frames.back().timeMs; }  // REQUIRES: !IsEmpty()

  // Looks for the frame that a file begins with, nearest to where the file's name puts it. Whether it was there
  // already; then Match goes on behind it.
  bool Find(const MediaFrame& frame, long long timeMs);
  // Whether the file's next frame is among those behind the one that was found or matched last.
  bool Match(const MediaFrame& frame);
  // Time of the frame found or matched last. REQUIRES: nothing was remembered since
  long long MatchedMs() const { return m_frames[m_next - 1].timeMs; }

 private:
  struct Picture {
    bool isKey;
    int length;
    std::uint64_t headHash;
    std::uint64_t endHash;
    long long timeMs;
  };
  static Picture PictureOf(const MediaFrame& frame, long long timeMs);
  static bool IsSame(const Picture& a, const Picture& b);
  static bool IsSameFirst(const Picture& first, const Picture& written);

  std::deque<Picture> m_frames;
  std::size_t m_next = 0;  // behind the frame found or matched last
  std::size_t m_end = 0;   // what was remembered since the search is the file's own
};

}  // namespace record

#endif
