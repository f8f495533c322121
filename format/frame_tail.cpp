#include "format/frame_tail.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace record {
namespace {

constexpr std::size_t kMost = 1024;
// What a recorder looks back at most: a file's name may lie so far behind its first picture.
constexpr long long kNearMs = 15000;

// A writer may put the codec configuration in front of a file's first picture.
constexpr int kShortestConfig = 16;
constexpr int kLongestConfig = 512;

std::uint64_t Hash(const unsigned char* data, std::size_t length) {
  std::uint64_t words[8] = {};
  std::memcpy(words, data, std::min(length, sizeof words));
  std::uint64_t hash = 0xcbf29ce484222325u;
  for (const std::uint64_t word : words) hash = ((hash ^ word) * 0x9e3779b97f4a7c15u) ^ (hash >> 29);
  return hash;
}

}  // namespace

// Both ends of a frame tell: no two pictures agree there by chance.
FrameTail::Picture FrameTail::PictureOf(const MediaFrame& frame, long long timeMs) {
  constexpr std::size_t kEnd = 64;
  const auto length = static_cast<std::size_t>(frame.length);
  const std::size_t end = std::min(length, kEnd);
  return {frame.isKey, frame.length, Hash(frame.data, end), Hash(frame.data + length - end, end), timeMs};
}

bool FrameTail::IsSame(const Picture& a, const Picture& b) {
  return a.isKey == b.isKey && a.length == b.length && a.headHash == b.headHash && a.endHash == b.endHash;
}

bool FrameTail::IsSameFirst(const Picture& first, const Picture& written) {
  if (IsSame(first, written)) return true;
  const int longer = first.length - written.length;
  return written.isKey && longer >= kShortestConfig && longer <= kLongestConfig &&
         first.endHash == written.endHash;
}

void FrameTail::Remember(const MediaFrame& frame, long long timeMs) {
  m_frames.push_back(PictureOf(frame, timeMs));
  if (m_frames.size() <= kMost) return;
  m_frames.pop_front();
  if (m_next > 0) --m_next;
  if (m_end > 0) --m_end;
}

// Pictures of a still scene may be alike in every group: then only one that the file's time allows is believed.
bool FrameTail::Find(const MediaFrame& frame, long long timeMs) {
  const Picture wanted = PictureOf(frame, timeMs);
  long long best = kNearMs;
  int alike = 0;
  m_end = m_frames.size();
  for (std::size_t at = 0; at < m_frames.size(); ++at) {
    const long long distance = std::llabs(m_frames[at].timeMs - timeMs);
    if (!IsSameFirst(wanted, m_frames[at]) || distance >= best) continue;
    best = distance;
    m_next = at + 1;
    ++alike;
  }
  return alike == 1 || (alike > 1 && timeMs <= m_frames.back().timeMs);
}

bool FrameTail::Match(const MediaFrame& frame) {
  const Picture wanted = PictureOf(frame, 0);
  std::size_t at = m_next;
  while (at < m_end && !IsSame(m_frames[at], wanted)) ++at;
  if (at >= m_end) return false;
  m_next = at + 1;
  return true;
}

}  // namespace record
