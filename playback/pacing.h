// When a frame is due. Times in milliseconds.
#ifndef PLAYBACK_PACING_H
#define PLAYBACK_PACING_H

#include <cstdint>

namespace record {

constexpr int kNormalSpeed = 1;
constexpr int kFastest = 16;            // and as a negative number the slowest
constexpr int kKeyFramesFromSpeed = 4;  // from here on key frames alone are shown
constexpr int kNapMs = 10;

// How long a frame that was recorded `recordedMs` after the one before it is to be shown after that one. Longer
// gaps than a second of recording (at higher speeds, of playing) are not waited for.
std::uint64_t DueAfter(std::uint64_t recordedMs, int speed);

// The times of the frame shown last, and the wait for the next one.
class Pacer {
 public:
  void Restart(std::uint64_t now);  // after a seek: the next frame is due at once
  // Until the frame with that time is due.
  std::uint64_t LeftUntil(std::uint64_t ptsMs, int speed, std::uint64_t now);
  // A frame that is late, but not very, leaves the schedule as it is, so that those behind it catch up. At normal
  // speed what naps are too short is made up for, too: else playback, which takes a moment for every sound, would
  // run up to a third too fast.
  void Shown(std::uint64_t ptsMs, int speed, std::uint64_t now);

 private:
  std::uint64_t m_lastPts = 0;  // 0: none since the last seek
  std::int64_t m_lastPush = 0;
  std::int64_t m_due = 0;
};

// Whether the camera sends a picture now and then only: four long or four short gaps in a row decide.
class SparseDetector {
 public:
  void Take(std::uint32_t offsetMs);
  bool IsSparse() const { return m_isSparse; }

 private:
  std::uint32_t m_lastOffset = 0;
  int m_shortGaps = 0;
  int m_longGaps = 0;
  bool m_isSparse = false;
};

}  // namespace record

#endif
