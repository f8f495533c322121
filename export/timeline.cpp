#include "export/timeline.h"

#include <algorithm>

#include "format/defaults.h"

namespace record {
namespace {

// Stamps of neighbours may be out of order by that much; more is a clock that was set.
constexpr long long kJitterMs = 1000;
// A file that seems to begin so much before the last one's end was named late: it was begun before its name.
constexpr long long kLateNameMs = 15000;

long long IntervalOf(const ExportTimeline::File& file) {
  return file.framerate > 0 && file.framerate <= 1000 ? 1000 / file.framerate : kDefaultInterval;
}

}  // namespace

void ExportTimeline::BeginFile(const File& file) {
  m_file = file;
  m_hasFirst = false;
  m_baseMs = file.startMs;
  m_isExact = false;
  m_isJoined = !m_hasBegun;
  m_matches = false;
  m_needsKey = true;
  m_writtenToMs = m_pictureMs;
  m_soundWrittenToMs = m_soundMs;
  m_pace.Begin();
  m_repeated.BeginFile(static_cast<std::uint32_t>(file.startMs / 1000));
}

void ExportTimeline::TakeFirst(const MediaFrame& frame) {
  m_hasFirst = true;
  m_firstStamp = frame.stamp - frame.offsetMs;
  m_isExact = m_file.hasStreamStamps && m_repeated.IsOfWallClock(m_firstStamp);
  if (m_isExact) m_baseMs += static_cast<std::int32_t>(m_firstStamp - static_cast<std::uint32_t>(m_file.startMs));
}

long long ExportTimeline::PlaceOf(const MediaFrame& frame) const {
  return m_baseMs + static_cast<std::int32_t>(frame.stamp - m_firstStamp);
}

bool ExportTimeline::Place(const MediaFrame& frame) {
  if (!m_hasFirst) TakeFirst(frame);
  return frame.isVideo ? PlacePicture(frame) : PlaceSound(frame);
}

bool ExportTimeline::PlacePicture(const MediaFrame& frame) {
  if (!m_hasBegun && !frame.isKey) return false;
  if (!m_isJoined && frame.isKey) Join(frame);
  if (WasWritten(frame)) return false;
  if (m_needsKey && !frame.isKey) return false;
  const long long timeMs = PlaceOf(frame);
  // Another stream's picture of a time that is in the output: what is new goes on with a key frame.
  if (m_needsKey && m_hasBegun && timeMs <= m_writtenToMs) return false;
  Advance(frame, Forward(timeMs));
  return true;
}

// The file's first key frame: whether it was written already, and else where its file belongs.
void ExportTimeline::Join(const MediaFrame& key) {
  m_isJoined = true;
  const long long timeMs = PlaceOf(key);
  if (!m_file.hasStreamStamps && m_tail.Find(key, timeMs)) {
    m_matches = m_isExact = true;
    m_baseMs += m_tail.MatchedMs() - timeMs;
  } else if (!m_isExact && timeMs <= m_pictureMs && m_pictureMs - timeMs <= kLateNameMs) {
    m_baseMs += m_pictureMs + IntervalOf(m_file) - timeMs;
  }
}

// Behind the last picture that both files have, the file goes on without a key frame.
bool ExportTimeline::WasWritten(const MediaFrame& frame) {
  if (m_file.hasStreamStamps) {
    const bool repeated = m_repeated.Take(frame);
    if (repeated && frame.isVideo) m_needsKey = false;
    return repeated;
  }
  if (!m_matches || !frame.isVideo) return false;
  const bool isFirst = m_needsKey;
  m_needsKey = false;
  m_matches = isFirst || m_tail.Match(frame);
  if (m_matches && !isFirst) m_baseMs += m_tail.MatchedMs() - PlaceOf(frame);
  return m_matches;
}

// Time goes on, whatever the stamps do.
long long ExportTimeline::Forward(long long timeMs) {
  if (!m_hasBegun || timeMs > m_pictureMs) return timeMs;
  if (m_pictureMs - timeMs <= kJitterMs) return m_pictureMs + 1;
  m_baseMs += m_pictureMs + IntervalOf(m_file) - timeMs;
  return m_pictureMs + IntervalOf(m_file);
}

void ExportTimeline::Advance(const MediaFrame& frame, long long timeMs) {
  if (!m_hasBegun) m_originMs = m_pictureMs = m_soundMs = timeMs;
  m_hasBegun = true;
  m_needsKey = false;
  m_gaps.Add(m_pictureMs, timeMs);
  m_timeMs = m_pictureMs = timeMs;
  m_tail.Remember(frame, timeMs);
}

bool ExportTimeline::PlaceSound(const MediaFrame& frame) {
  if (!m_hasBegun || (!m_isJoined && !m_isExact) || WasWritten(frame)) return false;
  const long long lengthUs = SoundFrameUs(m_file.audio, frame);
  long long timeMs = PlaceOf(frame);
  if (!m_file.hasSoundStamps) timeMs = m_pace.Place(timeMs, IntervalOf(m_file), lengthUs);
  if (timeMs < m_originMs) return false;
  // Of a file before; stamps that were rounded may be off by a little.
  if (m_soundWrittenToMs > m_originMs && timeMs <= m_soundWrittenToMs + lengthUs / 2000) return false;
  m_timeMs = m_soundMs = std::max(timeMs, m_soundMs);
  return true;
}

}  // namespace record
