// The drop rule: after a gap in a stream nothing is written until the next key frame.
#ifndef RECORD_FRAME_SEQUENCE_H
#define RECORD_FRAME_SEQUENCE_H

#include <cstdint>

namespace record {

class FrameSequence {
 public:
  // Whether the frame may be written. A key frame always may; another only when it follows the last accepted
  // frame within the same group of pictures.
  bool Accept(bool isKey, std::int64_t keyIndex, std::int64_t frameIndex) {
    if (isKey) {
      m_keyIndex = keyIndex;
      m_frameIndex = frameIndex;
      return true;
    }
    if (m_keyIndex < 0 || keyIndex != m_keyIndex || frameIndex != m_frameIndex + 1) return false;
    m_frameIndex = frameIndex;
    return true;
  }

  std::int64_t KeyIndex() const { return m_keyIndex; }
  std::int64_t FrameIndex() const { return m_frameIndex; }

 private:
  std::int64_t m_keyIndex = -1;  // of the last accepted frame; -1 before the first
  std::int64_t m_frameIndex = -1;
};

}  // namespace record

#endif
