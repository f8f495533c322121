// The files of a day in the order of time.
#ifndef PLAYBACK_TIMELINE_H
#define PLAYBACK_TIMELINE_H

#include <map>
#include <string>

#include "record/playback.h"

namespace record {

// From ".../YYYYMMDD/HHMMSS..."; 0 when a path does not tell.
std::uint32_t StartTimestampOf(const std::string& path);
std::uint32_t StartSecondOf(const std::string& path);

bool IsSameLocalDay(long long a, long long b);

// Day directory and name first, so that the order of paths is the order of time, also when a day lies in the
// directories of several kinds or on several media.
struct ByTime {
  bool operator()(const std::string& a, const std::string& b) const;
};

using TimelineFiles = std::map<std::string, PlaybackFileInfo, ByTime>;

inline bool Covers(const PlaybackFileInfo& file, std::uint32_t time) {
  return file.nStartTimestamp <= time && time < file.nStartTimestamp + file.nDuration;
}

// The files of the local day of `time`, of streams 1 and 2 for channel 0, of 4 and 6 for every other one. -1 when
// the catalogue cannot be had; `files` is empty then.
int FindDayFiles(long long time, int channel, TimelineFiles& files);

// Where playback of `time` begins: in the file that holds it, else, in a gap, in the file before the gap, else in
// the first one. The end when `time` lies behind all files.
TimelineFiles::const_iterator FileFor(const TimelineFiles& files, long long time);

}  // namespace record

#endif
