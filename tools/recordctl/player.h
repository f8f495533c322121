// One playback: the session, what becomes of its frames, the keys and the status line.
#ifndef RECORDCTL_PLAYER_H
#define RECORDCTL_PLAYER_H

#include <atomic>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "record/playback.h"
#include "tools/recordctl/day_walk.h"
#include "tools/recordctl/options.h"
#include "tools/recordctl/play_stats.h"
#include "tools/recordctl/progress.h"
#include "tools/recordctl/stream_output.h"

namespace recordctl {

struct PlayRequest {
  std::string at;
  std::string file;
  int speed = 1;
  int duration = 0;  // seconds of recording; 0: to the end
  bool oneFile = false;
  std::string output;  // "" for none, "-" or a path
};

class Player {
 public:
  Player(const Options& options, const PlayRequest& request);
  ~Player();
  Player(const Player&) = delete;
  Player& operator=(const Player&) = delete;

  int PlayDay(long long time);
  int PlayFile(const std::string& path);

 private:
  static void OnParams(unsigned int, const VIDEO_PARAM* video, const AUDIO_PARAM* audio);
  static PlaybackPushResult OnVideo(unsigned int, const char* frame, unsigned int length, unsigned long long ptsMs,
                                    int key);
  static PlaybackPushResult OnAudio(unsigned int, const char* frame, unsigned int length,
                                    unsigned long long ptsMs);
  static void OnSeekDone(unsigned int);

  int Play(CPlaybackControls& session);
  bool GoOn();
  int Report();
  void TakeParams(const VIDEO_PARAM& video, const AUDIO_PARAM& audio);
  void TakeVideo(const char* frame, unsigned length, unsigned long long ptsMs, bool isKey);
  void TakeAudio(const char* frame, unsigned length, unsigned long long ptsMs);
  std::optional<long long> NotePicture(unsigned length, unsigned long long ptsMs, bool isKey);
  std::optional<long long> NoteSound(unsigned length, unsigned long long ptsMs);
  void TellOfGap(unsigned long long ptsMs, unsigned gapMs);
  void SetSpeed(int speed);
  void EndOutput();
  void Jump(long long time, bool forward);
  void TakeKey(char key);
  void ShowStatus();
  std::string TimeText(unsigned long long ptsMs) const;
  std::string PlayingFile();

  const Options& m_options;
  const PlayRequest& m_request;
  CPlaybackControls* m_session = nullptr;
  CPlaybackSession* m_day = nullptr;  // the session, when it plays a day
  Progress m_progress;
  std::atomic<bool> m_done{false};
  std::atomic<bool> m_isQuit{false};  // by a key: nobody is waited for any more
  bool m_isPaused = false;

  // Of the session's thread until it has ended: who reads the output may take any time.
  StreamOutput m_output;
  std::string m_error;

  std::mutex m_mutex;  // guards what follows
  std::atomic<int> m_speed{1};
  PlayStats m_stats;
  DayWalk m_walk;
  bool m_hasUnreadable = false;
  bool m_toldOfSound = false;
  unsigned m_frameMs = 40;
  bool m_hasPicture = false;
  unsigned long long m_firstPts = 0;
  unsigned long long m_lastPts = 0;
  long long m_outputMs = 0;  // of the last picture, in the time of playing
  unsigned long long m_shownPictures = 0;
};

}  // namespace recordctl

#endif
