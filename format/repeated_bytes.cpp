#include "format/repeated_bytes.h"

namespace record {
namespace {

constexpr long long kLongestOverlapMs = 30000;

}  // namespace

void RepeatedBytes::Forget() {
  m_video = m_audio = Medium();
}

void RepeatedBytes::BeginFile(std::uint32_t startSeconds, bool skipped) {
  m_baseMs = startSeconds * 1000LL;
  for (Medium* medium : {&m_video, &m_audio}) {
    const bool hasBefore = !medium->tail.IsEmpty();
    medium->isUndecided = hasBefore;
    medium->matches = false;
    medium->isBehind = hasBefore && skipped;
    medium->untilMs = hasBefore ? medium->tail.LastMs() : 0;
  }
}

bool RepeatedBytes::ReachInto(MediaFile& file) {
  if (m_video.tail.IsEmpty()) return false;
  const MediaFrame* first = file.Peek();
  return first && first->isVideo && first->isKey && m_video.tail.Find(*first, TimeOf(*first));
}

// Sound that is alike everywhere says nothing: where there are pictures, they decide whether the file goes on.
void RepeatedBytes::Look(Medium& medium, const MediaFrame& frame, long long timeMs) {
  const bool isLed = !frame.isVideo && !m_video.tail.IsEmpty();
  medium.isUndecided = false;
  medium.matches = (!isLed || m_video.matches) && medium.tail.Find(frame, timeMs);
  if (medium.matches && !isLed) m_baseMs += medium.tail.MatchedMs() - timeMs;
}

bool RepeatedBytes::IsRepeated(Medium& medium, const MediaFrame& frame, long long timeMs) {
  if (medium.isUndecided && (frame.isKey || !frame.isVideo)) {
    Look(medium, frame, timeMs);
    if (medium.matches) return true;
  } else if (medium.matches && medium.tail.Match(frame)) {
    return true;
  }
  const long long ahead = medium.untilMs - TimeOf(frame);
  return medium.isBehind && ahead >= 0 && ahead <= kLongestOverlapMs;
}

bool RepeatedBytes::Take(const MediaFrame& frame) {
  Medium& medium = frame.isVideo ? m_video : m_audio;
  if (IsRepeated(medium, frame, TimeOf(frame))) return true;
  medium.isBehind = false;
  medium.tail.Remember(frame, TimeOf(frame));
  return false;
}

}  // namespace record
