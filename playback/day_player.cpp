#include "playback/day_player.h"

#include <cstdio>
#include <iterator>

#include "base/clock.h"

namespace record {

int DayPlayer::SearchFiles() {
  TimelineFiles found;
  const int result = FindDayFiles(m_seekTime, m_channel, found);
  const std::lock_guard<std::mutex> lock(m_viewMutex);
  m_files.swap(found);
  return result;
}

// m_playing is written on this thread only.
void DayPlayer::LogOpened(const std::string& path) {
  RECORD_LOG_MODULE(kLogModuleLifecycle, "%s open OK. start timestamp=%u\n\n", path.c_str(),
                    m_playing.nStartTimestamp);
}

int DayPlayer::OpenFile(const std::string& path, const PlaybackFileInfo& info) {
  {
    const std::lock_guard<std::mutex> lock(m_viewMutex);
    m_playing = info;
  }
  if (OpenReader(path) != 0) return -1;
  m_repeated.BeginFile(info.nStartTimestamp);
  return 0;
}

void DayPlayer::Choose(TimelineFiles::const_iterator file) {
  const std::lock_guard<std::mutex> lock(m_viewMutex);
  m_playingPath = file->first;
  m_playing = file->second;
}

void DayPlayer::ClearPath() {
  const std::lock_guard<std::mutex> lock(m_viewMutex);
  m_playingPath.clear();
}

int DayPlayer::OpenChosen() {
  if (OpenFile(m_playingPath, m_playing) == 0) return 0;
  RECORD_LOG("%s: open failed.\n", m_playingPath.c_str());
  ClearPath();
  return -1;
}

bool DayPlayer::ChooseNextOf(const std::string& path) {
  const auto current = m_files.find(path);
  if (current == m_files.end() || std::next(current) == m_files.end()) return false;
  Choose(std::next(current));
  return true;
}

// 0 also when there is no next file: the worker then idles.
int DayPlayer::NextFile() {
  const Lock lock(*this, __LINE__);
  const std::string ended = m_playingPath;
  {
    const std::lock_guard<std::mutex> view(m_viewMutex);
    m_playingPath.clear();
    if (!ended.empty()) m_endedPath = ended;
  }
  m_file.Close();
  if (m_isOneVideo) return -1;
  if (ended.empty()) {
    if (!m_files.empty()) Choose(m_files.begin());
  } else if (!ChooseNextOf(ended) && IsSameLocalDay(m_seekTime, WallNow().seconds)) {
    SearchFiles();  // more may have been written since
    ChooseNextOf(ended);
  }
  return m_playingPath.empty() ? 0 : OpenChosen();
}

bool DayPlayer::AtEnd() {
  if (NextFile() != 0) RECORD_LOG_TEXT("Go NextFile failed.\n");
  return true;
}

void DayPlayer::SearchAgain(long long time) {
  m_file.Close();
  {
    const std::lock_guard<std::mutex> lock(m_viewMutex);
    m_seekTime = time;
    m_playingPath.clear();
  }
  SearchFiles();
}

bool DayPlayer::IsInPlayingFile(long long time) const {
  if (m_playingPath.empty() || !m_file.IsOpen()) {
    RECORD_LOG_TEXT("search all\n");
    return false;
  }
  const bool covers = Covers(m_playing, static_cast<std::uint32_t>(time));
  const unsigned end = m_playing.nStartTimestamp + m_playing.nDuration;
  if (covers)
    RECORD_LOG("curfile:%s, seektime %d is in [%u %u]\n", m_playingPath.c_str(), static_cast<int>(time),
               m_playing.nStartTimestamp, end);
  else
    RECORD_LOG("curfile:%s, seektime %d is not in [%u %u]\n", m_playingPath.c_str(), static_cast<int>(time),
               m_playing.nStartTimestamp, end);
  return covers;
}

void DayPlayer::ChooseFile(long long time) {
  const auto file = FileFor(m_files, time);
  if (file == m_files.end()) return;
  Choose(file);
  const auto shown = static_cast<int>(time);
  if (Covers(m_playing, static_cast<std::uint32_t>(time)))
    RECORD_LOG("%s, seektime %d is in [%u %u]\n", m_playingPath.c_str(), shown, m_playing.nStartTimestamp,
               m_playing.nStartTimestamp + m_playing.nDuration);
  else  // with a full-width comma, as its readers know it
    RECORD_LOG("seektime %d\xa3\xac get %s\n", shown, m_playingPath.c_str());
}

int DayPlayer::SeekInFile(long long time) {
  const long long start = m_playing.nStartTimestamp;
  const auto offset = static_cast<unsigned long>(start < time ? time - start : 0);
  if (m_file.Seek(offset) == 0) {
    RECORD_LOG("%s seek %ld (offset %lu) OK.\n", m_playingPath.c_str(), ToTimeWord(time), offset);
    return 0;
  }
  RECORD_LOG("%s seek %ld (offset %lu) failed.\n", m_playingPath.c_str(), ToTimeWord(time), offset);
  return -1;
}

int DayPlayer::OpenFor(long long time) {
  ChooseFile(time);
  if (m_playingPath.empty()) {
    RECORD_LOG("seektime %d, search file failed\n", static_cast<int>(time));
    return 0;
  }
  if (OpenChosen() != 0) return -1;
  RECORD_LOG_MODULE(kLogModuleLifecycle, "%s: open ok.\n", m_playingPath.c_str());
  return 0;
}

int DayPlayer::InnerSeek(long long time) {
  constexpr long long kRecentSeconds = 1800;  // files so young may not have been there at the last search
  Lock lock(*this, __LINE__);
  int result = 0;
  const long long now = WallNow().seconds;
  m_repeated.Forget();
  if (!IsSameLocalDay(time, m_seekTime)) {
    RECORD_LOG("%ld -> %ld, change DAY.\n", ToTimeWord(m_seekTime), ToTimeWord(time));
    SearchAgain(time);
  } else if (IsSameLocalDay(time, now) && now - time < kRecentSeconds && now > time) {
    RECORD_LOG("nowtime %ld closer to seektime %ld, re search.\n", ToTimeWord(now), ToTimeWord(time));
    SearchAgain(time);
  }
  {
    const std::lock_guard<std::mutex> view(m_viewMutex);
    m_seekTime = time;
    m_endedPath.clear();
  }
  if (!IsInPlayingFile(time)) result = OpenFor(time);
  if (m_file.IsOpen() && SeekInFile(time) != 0) result = -1;
  FinishSeek(lock);
  return result;
}

int DayPlayer::Work() {
  const unsigned before = GetCurrentTimeStamp();
  {
    const Worker worker(*this);
    {
      const Lock lock(*this, __LINE__);
      SearchFiles();
    }
    InnerSeek(m_seekTime);
    Loop();
  }
  RECORD_LOG_MODULE(kLogModuleLifecycle, "ch:%d, session %u playback finished, spend %d mseconds\n", m_channel,
                    SessionId(), static_cast<int>(GetCurrentTimeStamp() - before));
  return 0;
}

std::string DayPlayer::PlayingFile() {
  const std::lock_guard<std::mutex> lock(m_viewMutex);
  return m_playingPath;
}

std::string DayPlayer::EndedFile() {
  const std::lock_guard<std::mutex> lock(m_viewMutex);
  return m_endedPath;
}

// The fields change their meaning on the way, see the header.
unsigned DayPlayer::GetInfo(PlaybackFileInfo& out) {
  const std::lock_guard<std::mutex> lock(m_viewMutex);
  const auto sought = static_cast<std::uint32_t>(m_seekTime);
  PlaybackFileInfo summary = m_playing;
  summary.nDuration = m_playing.nStartTimestamp + m_playing.nDuration - sought;
  std::uint32_t total = 0;
  for (const auto& [path, file] : m_files) {
    if (sought <= file.nStartTimestamp + file.nDuration) total += file.nDuration;
  }
  std::printf("nFileStartSecond==%d\n", static_cast<int>(total));
  summary.nStartSecond = total + m_playing.nStartTimestamp - sought;
  out = summary;
  return summary.nStartTimestamp;
}

}  // namespace record
