#include "platform/host/mp4_timeline.h"

#include <algorithm>
#include <cstdlib>

namespace record {
namespace {
constexpr std::int64_t kLongestStepBack = 1000;  // frames that overtook each other
constexpr std::int64_t kTracksApart = 10000;     // sound and pictures that begin together
constexpr std::int64_t kFastest = 8;  // how much faster than nominal a track may become to get in step again
}  // namespace

bool StampLine::IsPlausible(std::int64_t place, std::int64_t last) const {
  return place >= last - kLongestStepBack && place <= last + m_longestGap;
}

std::int64_t StampLine::FirstPlace(const Last& other, std::uint32_t stamp) const {
  if (!other.isKnown) return 0;
  const std::int64_t place = other.From(stamp);
  return std::abs(place - other.place) <= kTracksApart ? place : other.place;
}

std::int64_t StampLine::Place(Mp4Track track, std::uint32_t stamp, std::int64_t nominalMs) {
  Last& own = m_last[track];
  const Last& other = m_last[track == kMp4Video ? kMp4Audio : kMp4Video];
  std::int64_t place = own.isKnown ? own.From(stamp) : FirstPlace(other, stamp);
  if (own.isKnown && !IsPlausible(place, own.place)) {
    place = own.place + nominalMs;
    if (other.isKnown && IsPlausible(other.From(stamp), own.place)) place = other.From(stamp);
  }
  own = {true, stamp, place};
  return place;
}

std::int64_t TrackClock::Next(std::int64_t placeMs, std::uint32_t duration) {
  const std::int64_t wanted = ToUnits(placeMs);
  const bool isInStep = m_end >= 0 && std::abs(wanted - m_end) <= m_tolerance;
  const std::int64_t earliest = m_last + 1 + (m_end - m_last) / kFastest;
  m_last = std::max(isInStep ? m_end : wanted, m_last < 0 ? 0 : earliest);
  m_end = m_last + duration;
  return m_last;
}

}  // namespace record
