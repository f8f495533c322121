#include "format/repeated_frames.h"

#include <algorithm>

namespace record {
namespace {

constexpr size_t kAnchorMax = 4096;
// How far a file's first stamp may stand from the second that names the file.
constexpr std::int32_t kLongestLookBackMs = 120000;
constexpr std::int32_t kLongestDelayMs = 2000;

// FNV-1a of the frame's end: two key frames that begin alike may be the rule.
std::uint32_t Hash(const MediaFrame& frame) {
  constexpr int kHashed = 4096;
  std::uint32_t hash = 2166136261u;
  for (int at = std::max(frame.length - kHashed, 0); at < frame.length; ++at)
    hash = (hash ^ frame.data[at]) * 16777619u;
  return hash;
}

}  // namespace

void RepeatedFrames::Forget() {
  m_isUndecided = m_hasSkipped = m_skippedBefore = false;
  m_anchors.clear();
  m_video = m_audio = Medium();
  m_bytes.Forget();
}

void RepeatedFrames::BeginFile(std::uint32_t startSeconds) {
  m_startMs = startSeconds * 1000u;
  m_isUndecided = true;
  m_skippedBefore = m_hasSkipped;
  m_hasSkipped = false;
  m_video.repeats = m_audio.repeats = false;
  m_bytes.BeginFile(startSeconds, m_skippedBefore);
}

bool RepeatedFrames::IsOfWallClock(std::uint32_t stamp) const {
  const auto lookBack = static_cast<std::int32_t>(m_startMs - stamp);
  return -kLongestDelayMs <= lookBack && lookBack <= kLongestLookBackMs;
}

bool RepeatedFrames::ReachInto(MediaFile& file) {
  if (!file.HasStreamStamps()) return m_bytes.ReachInto(file);
  std::uint32_t first = 0;
  return file.GetFirstStamp(first) && ReachesTo(first);
}

bool RepeatedFrames::ReachesTo(std::uint32_t stamp) const {
  if (!m_video.seen || !IsOfWallClock(stamp)) return false;
  const auto shared = static_cast<std::int32_t>(m_video.last - stamp);
  return shared >= 0 && shared <= kLongestLookBackMs;
}

bool RepeatedFrames::ContinuesWith(const MediaFrame& frame, const Anchor& anchor) const {
  if (!IsOfWallClock(frame.stamp)) return false;
  if (m_skippedBefore && ReachesTo(frame.stamp)) return true;
  return std::any_of(m_anchors.begin(), m_anchors.end(), [&](const Anchor& each) {
    return each.stamp == anchor.stamp && each.hash == anchor.hash && each.length == anchor.length;
  });
}

bool RepeatedFrames::Take(const MediaFrame& frame) {
  if (!frame.isStreamStamp) return m_bytes.Take(frame);
  Medium& medium = frame.isVideo ? m_video : m_audio;
  const bool isAnchor = IsAnchor(frame);
  const Anchor anchor = {frame.stamp, isAnchor ? Hash(frame) : 0, frame.length};
  if (m_isUndecided && isAnchor) {
    m_isUndecided = false;
    const bool continues = ContinuesWith(frame, anchor);
    m_video.repeats = continues && m_video.seen;
    m_audio.repeats = continues && m_audio.seen;
  }
  if (medium.repeats && static_cast<std::int32_t>(frame.stamp - medium.last) <= 0) return true;
  medium = {true, frame.stamp, false};
  if (isAnchor) m_anchors.push_back(anchor);
  if (m_anchors.size() > kAnchorMax) m_anchors.pop_front();
  return false;
}

}  // namespace record
