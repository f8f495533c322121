// Plays the files of one day, one after the other. Times are seconds since 1970; where the interface hands in a
// `long`, it is a time word.
#ifndef PLAYBACK_DAY_PLAYER_H
#define PLAYBACK_DAY_PLAYER_H

#include <string>

#include "base/time_word.h"
#include "playback/playback_pump.h"
#include "playback/timeline.h"

namespace record {

class DayPlayer : public PlaybackPump {
 public:
  DayPlayer(unsigned sessionId, int channel, long seekTime, const PlaybackCallbacks& callbacks)
      : PlaybackPump(sessionId, callbacks),
        m_channel(channel),
        m_reportedTime(seekTime),
        m_seekTime(FromTimeWord(seekTime)) {}

  int Work() override;
  int InnerSeek(long long time) override;
  void Seek(long time) override {
    if (time != 0) SeekTo(FromTimeWord(time));  // 0 is no point in time
  }
  int NextFile();
  int SearchFiles();
  int OpenFile(const std::string& path, const PlaybackFileInfo& info);
  void PlayOneFile() { m_isOneVideo = true; }

  int Channel() const { return m_channel; }
  long ReportedTime() const { return m_reportedTime; }
  std::string PlayingFile();
  std::string EndedFile();
  unsigned GetInfo(PlaybackFileInfo& out);

 protected:
  void LogOpened(const std::string& path) override;
  std::uint64_t BaseMs() const override { return m_playing.nStartTimestamp * 1000ULL; }
  const std::string& PlayingPath() const override { return m_playingPath; }
  bool AtEnd() override;

 private:
  void SearchAgain(long long time);
  bool IsInPlayingFile(long long time) const;
  void ChooseFile(long long time);
  void Choose(TimelineFiles::const_iterator file);
  void ClearPath();
  bool ChooseNextOf(const std::string& path);
  int OpenChosen();
  int OpenFor(long long time);
  int SeekInFile(long long time);

  const int m_channel;
  const long m_reportedTime;
  std::atomic<bool> m_isOneVideo{false};

  // Written by whoever holds the session lock, under m_viewMutex as well; read under either.
  long long m_seekTime;       // last sought to
  std::string m_playingPath;  // "" when there is none
  std::string m_endedPath;    // the last one that ended since the last seek
  PlaybackFileInfo m_playing = {};
  TimelineFiles m_files;
};

}  // namespace record

#endif
