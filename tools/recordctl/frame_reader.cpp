#include "tools/recordctl/frame_reader.h"

namespace recordctl {
namespace {

constexpr int kMostDamage = 1 << 20;  // reads without a frame
constexpr long kTooLarge = -3;        // an AVI chunk longer than any frame is: damage, too
constexpr long kNoFrame = -1;

}  // namespace

bool FrameReader::Next(Frame& frame) {
  Release();
  long owned = 0;
  long video = kNoFrame;
  long key = 0;
  // Damage is passed over a few bytes at a time; a frame without bytes is one.
  for (int tries = 0; tries < kMostDamage && video == kNoFrame; ++tries) {
    frame.length = m_file.GetMediaFrame(&frame.data, owned, video, key, frame.timestamp);
    if (frame.length < 0 && frame.length != kTooLarge) return false;
  }
  if (video == kNoFrame) return false;
  if (owned != 0) m_owned = frame.data;
  frame.video = video != 0;
  frame.key = video != 0 && key != 0;
  frame.number = m_number++;
  return true;
}

void FrameReader::Release() {
  delete[] m_owned;
  m_owned = nullptr;
}

}  // namespace recordctl
