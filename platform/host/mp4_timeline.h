// From the stamps of a device to the time lines of an MP4 file's tracks: whatever comes in, times go up.
#ifndef PLATFORM_HOST_MP4_TIMELINE_H
#define PLATFORM_HOST_MP4_TIMELINE_H

#include <cstdint>

#include "platform/host/mp4_movie.h"

namespace record {

// Unfolds stamps (milliseconds modulo 2^32) onto one line for both tracks. A stamp that steps back by more than a
// second, or ahead by more than the longest gap, tells of a clock that was set: the track goes on from where it
// is, in step with the other one if that has met the same already.
class StampLine {
 public:
  explicit StampLine(std::int64_t longestGapMs) : m_longestGap(longestGapMs) {}
  // `nominalMs`: the distance from the frame before, when its stamp does not tell. The first frame is at 0.
  std::int64_t Place(Mp4Track track, std::uint32_t stamp, std::int64_t nominalMs);

 private:
  struct Last {
    bool isKnown = false;
    std::uint32_t stamp = 0;
    std::int64_t place = 0;
    std::int64_t From(std::uint32_t next) const { return place + static_cast<std::int32_t>(next - stamp); }
  };
  bool IsPlausible(std::int64_t place, std::int64_t last) const;
  std::int64_t FirstPlace(const Last& other, std::uint32_t stamp) const;

  const std::int64_t m_longestGap;
  Last m_last[kMp4Tracks];
};

// From the line to the units of one track. Sound keeps the even pace of its samples while the stamps do not
// contradict by more than the tolerance, for they are rounded and taken when a frame is fetched.
class TrackClock {
 public:
  TrackClock() = default;
  TrackClock(std::uint32_t timeScale, std::int64_t toleranceMs)
      : m_timeScale(timeScale), m_tolerance(ToUnits(toleranceMs)) {}
  // The time of a sample at `placeMs` (counted from the file's first frame) that nominally lasts `duration` units.
  // Always behind the one before.
  std::int64_t Next(std::int64_t placeMs, std::uint32_t duration);

 private:
  std::int64_t ToUnits(std::int64_t ms) const { return ms * m_timeScale / 1000; }

  std::int64_t m_timeScale = 1000;
  std::int64_t m_tolerance = 0;
  std::int64_t m_last = -1;
  std::int64_t m_end = -1;  // of the sample before, if it lasts as long as it should; -1: there is none
};

}  // namespace record

#endif
