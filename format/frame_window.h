// Reading frames, head and payload, one after the other or after jumps.
#ifndef FORMAT_FRAME_WINDOW_H
#define FORMAT_FRAME_WINDOW_H

#include <memory>

#include "format/file_source.h"

namespace record {

// The bytes of a frame: in an array of their own, or lent, until the next read.
struct FramePayload {
  unsigned char* data = nullptr;  // null when the frame has none
  std::unique_ptr<unsigned char[]> owned;

  // As a reader's GetMediaFrame hands it out; bytes that are not lent are the caller's from now on.
  void HandOver(unsigned char** to, long& isOwned) {
    const bool isLent = data != nullptr && !owned;
    isOwned = isLent ? 0 : 1;
    *to = data;
    static_cast<void>(owned.release());
  }
};

// After a jump the frame alone is read: whoever jumps from key frame to key frame pays for nothing else. From the
// second frame in a row on, whole blocks are.
class FrameWindow {
 public:
  explicit FrameWindow(FileSource& source);

  void Jumped() { m_inRow = false; }
  void Delivered() { m_inRow = true; }  // a frame was, and the next one may follow

  // False: the file ends early, or cannot be read.
  bool ReadHead(long long offset, void* head, std::size_t length);
  // Right behind the ReadHead of that frame. Lent, if that may be, when it lies in a block; else one copy,
  // straight to its place. False, too, when there is no memory.
  bool ReadPayload(long long offset, std::size_t length, bool mayLend, FramePayload& payload);

  FileWindow& Blocks() { return m_window; }

 private:
  unsigned char* Lend(long long offset, std::size_t length);
  bool Copy(long long offset, unsigned char* to, std::size_t length);

  FileSource& m_source;
  FileWindow m_window;
  bool m_inRow = false;
};

}  // namespace record

#endif
