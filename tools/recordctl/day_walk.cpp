#include "tools/recordctl/day_walk.h"

#include <algorithm>

#include "base/clock.h"
#include "format/media_file.h"
#include "playback/timeline.h"
#include "record/lookups.h"
#include "tools/recordctl/record_state.h"

namespace recordctl {
namespace {

constexpr int kMainChannel = 0;

long long FileStart(const std::string& file) {
  return static_cast<long long>(record::StartTimestampOf(file));
}

// By the same measure as a session.
bool IsPlayable(const std::string& file) {
  record::MediaFile media;
  VIDEO_PARAM video;
  AUDIO_PARAM audio;
  return media.Open(file) == 0 && media.GetParams(video, audio) == 0;
}

std::string FileBehind(long long time, const std::string& file) {
  record::TimelineFiles files;
  record::FindDayFiles(time, kMainChannel, files);
  const auto next = files.upper_bound(file);
  return next != files.end() ? next->first : "";
}

}  // namespace

long long PlayableFrom(long long time) {
  constexpr int kMainStream = 1;
  const struct tm at = record::LocalTime(time);
  std::string path;
  unsigned offset = 0;
  if (GetRecordFileAndOffset_by_streamIdx(at.tm_year + 1900, at.tm_mon + 1, at.tm_mday, at.tm_hour, at.tm_min,
                                          at.tm_sec, path, offset, kMainStream) != 0)
    return -1;
  return std::max(time, FileStart(path));
}

void DayWalk::SoughtByUser(long long time) {
  m_sought = time;
  m_lastSought = std::max(m_lastSought, time);
  m_lookedAt.clear();
}

long long DayWalk::BackTo(long long time) const {
  record::TimelineFiles files;
  record::FindDayFiles(time, kMainChannel, files);
  if (record::FileFor(files, time) != files.end()) return time;
  return m_playing.empty() ? 0 : FileStart(m_playing);
}

// A file whose pictures all came before ends without having played.
std::string DayWalk::NextFile(const std::string& ended) const {
  const auto isEarlier = [](const std::string& a, const std::string& b) {
    return !b.empty() && (a.empty() || record::ByTime()(a, b));
  };
  const std::string& last = std::max(std::max(m_playing, ended, isEarlier), m_lookedAt, isEarlier);
  if (last.empty()) {
    record::TimelineFiles files;
    record::FindDayFiles(m_sought, kMainChannel, files);
    const auto sought = record::FileFor(files, m_sought);
    return sought != files.end() ? sought->first : "";
  }
  const std::string next = FileBehind(FileStart(last), last);
  return next.empty() ? FileBehind(m_lastSought, last) : next;
}

long long DayWalk::GoOn(const std::string& ended, std::vector<std::string>& unreadable) {
  for (;;) {
    m_lookedAt = NextFile(ended);
    if (m_lookedAt.empty()) return -1;
    if (IsPlayable(m_lookedAt)) return FileStart(m_lookedAt);
    if (!IsBeingRecorded(m_lookedAt)) unreadable.push_back(m_lookedAt);
  }
}

}  // namespace recordctl
