#include "tools/recordctl/decode_order.h"

#include <utility>

namespace recordctl {
namespace {

constexpr std::size_t kDeepestReordering = 16;  // pictures, in H.264 and H.265
constexpr std::size_t kMostAhead = 1024;        // frames, where sound stands in a row

}  // namespace

void DecodeOrder::ReadAhead() {
  Frame frame;
  while (!m_isAtEnd && m_stamps.size() <= kDeepestReordering && m_ahead.size() < kMostAhead) {
    m_isAtEnd = !m_reader.Next(frame);
    if (m_isAtEnd) return;
    m_ahead.push_back({frame, {frame.data, frame.data + frame.length}});
    if (frame.video) m_stamps.insert(frame.timestamp);
  }
}

// The times of showing in ascending order are those of decoding, moved by the constant by which the first picture
// is shown later than it is decoded: what a recording of the same stream has.
bool DecodeOrder::Next(Frame& frame) {
  if (!m_isShown) return m_reader.Next(frame);
  ReadAhead();
  if (m_ahead.empty()) return false;
  m_current = std::move(m_ahead.front());
  m_ahead.pop_front();
  frame = m_current.frame;
  frame.data = m_current.bytes.data();
  if (!frame.video) return true;
  frame.timestamp = *m_stamps.begin();
  m_stamps.erase(m_stamps.begin());
  return true;
}

}  // namespace recordctl
