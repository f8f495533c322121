#include "playback/pacing.h"

#include <algorithm>

namespace record {
namespace {

// Later than that is no load on the machine: the consumer was full, playback paused, a file was waited for.
constexpr int kForgivenMs = 300;

}  // namespace

std::uint64_t DueAfter(std::uint64_t recordedMs, int speed) {
  constexpr std::uint64_t kLongestGap = 1000;
  if (speed >= kNormalSpeed) {
    const std::uint64_t gap = std::min(recordedMs, kLongestGap * static_cast<std::uint64_t>(speed));
    return static_cast<std::uint64_t>(static_cast<double>(gap) / speed);
  }
  const std::uint64_t gap = std::min(recordedMs, kLongestGap);
  return speed < 0 ? gap * static_cast<std::uint64_t>(-speed) : gap;
}

void Pacer::Restart(std::uint64_t now) {
  m_lastPts = 0;
  m_lastPush = m_due = static_cast<std::int64_t>(now);
}

std::uint64_t Pacer::LeftUntil(std::uint64_t ptsMs, int speed, std::uint64_t now) {
  const bool follows = m_lastPts != 0 && ptsMs > m_lastPts;
  m_due = m_lastPush + static_cast<std::int64_t>(DueAfter(follows ? ptsMs - m_lastPts : 0, speed));
  const std::int64_t left = m_due - static_cast<std::int64_t>(now);
  return left > 0 ? static_cast<std::uint64_t>(left) : 0;
}

void Pacer::Shown(std::uint64_t ptsMs, int speed, std::uint64_t now) {
  const std::int64_t late = static_cast<std::int64_t>(now) - m_due;
  const bool holds = late >= 0 ? late <= kForgivenMs : speed == kNormalSpeed && late > -kNapMs;
  m_lastPts = ptsMs;
  m_lastPush = holds ? m_due : static_cast<std::int64_t>(now);
}

void SparseDetector::Take(std::uint32_t offsetMs) {
  constexpr std::uint32_t kLongGapMs = 701;
  constexpr int kDecisive = 3;  // more than so many
  if (offsetMs - m_lastOffset < kLongGapMs) {
    m_longGaps = 0;
    if (++m_shortGaps > kDecisive) m_isSparse = false;
  } else {
    m_shortGaps = 0;
    if (++m_longGaps > kDecisive) m_isSparse = true;
  }
  m_lastOffset = offsetMs;
}

}  // namespace record
