// The frames that a replayer has read ahead: bounded in number and bytes.
#ifndef PLAYBACK_REPLAY_QUEUE_H
#define PLAYBACK_REPLAY_QUEUE_H

#include <cstring>
#include <deque>
#include <new>
#include <utility>

#include "format/media_file.h"

namespace record {

class ReplayQueue {
 public:
  bool HasRoom() const { return m_frames.size() < kFrameMax && m_bytes < kByteMax; }
  bool IsEmpty() const { return m_frames.empty(); }
  const MediaFrame& Front() const { return m_frames.front(); }

  // Frames that are their reader's are copied; one that there is no memory for is left out.
  void Push(MediaFrame frame) {
    if (!frame.owned) {
      frame.owned.reset(new (std::nothrow) unsigned char[static_cast<size_t>(frame.length)]);
      if (!frame.owned) return;
      std::memcpy(frame.owned.get(), frame.data, static_cast<size_t>(frame.length));
      frame.data = frame.owned.get();
      frame.lender.reset();
    }
    m_bytes += static_cast<size_t>(frame.length);
    m_frames.push_back(std::move(frame));
  }
  MediaFrame Pop() {
    MediaFrame frame = std::move(m_frames.front());
    m_frames.pop_front();
    m_bytes -= static_cast<size_t>(frame.length);
    return frame;
  }
  void Clear() {
    m_frames.clear();
    m_bytes = 0;
  }

 private:
  static constexpr size_t kFrameMax = 64;
  static constexpr size_t kByteMax = 4 << 20;
  std::deque<MediaFrame> m_frames;
  size_t m_bytes = 0;
};

}  // namespace record

#endif
