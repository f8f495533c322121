// Playing recordings into callbacks, at the pace at which they were recorded, faster or slower.
//
// CPlaybackSession plays a day of one channel from a point in time on, file after file; CPlayFileSession plays one
// named file. Each owns one thread, on which all its callbacks run. Every operation may be called from any thread,
// also from inside a callback; Stop() from inside a callback takes effect when the callback returns, and even the
// session may be deleted there.
//
// Seconds since 1970 stand in a `long`. Where that has 32 bits it is read unsigned: it reaches to 2106.
#ifndef RECORD_PLAYBACK_H
#define RECORD_PLAYBACK_H

#include <memory>
#include <string>

#include "record/types.h"

namespace record {
class PlaybackPump;
class DayPlayer;
class FilePlayer;
}  // namespace record

// One file of a day. It covers the seconds from nStartTimestamp up to, not including, its end.
struct PlaybackFileInfo {
  std::uint32_t nStartTimestamp;  // its start, from its name: seconds since 1970
  std::uint32_t nStartSecond;     // its start as second of the local day
  std::uint32_t nDuration;        // seconds
};

enum PlaybackPushResult : int {
  BUF_OK = 0,    // the frame was taken; so is every other value but the next
  BUF_FULL = 1,  // the consumer's queue is full: the same frame is offered again every 500 ms, ten times at most
};

// The parameters of the first file, and of a later one whose picture size or codecs differ. The pointers are the
// session's own, valid until the next such call.
using PlaybackParamsCallback = void (*)(unsigned int sessionId, const VIDEO_PARAM* video,
                                        const AUDIO_PARAM* audio);
// A video frame that is due. The bytes are valid during the call. `ptsMs`: milliseconds since 1970 (of the file's
// start as its name tells, plus the frame's time within the file); in a session of one file the latter alone.
using PlaybackVideoCallback = PlaybackPushResult (*)(unsigned int sessionId, const char* frame,
                                                     unsigned int length, unsigned long long ptsMs, int keyFrame);
// The same for audio, which is played at normal speed only and not paced by itself.
using PlaybackAudioCallback = PlaybackPushResult (*)(unsigned int sessionId, const char* frame,
                                                     unsigned int length, unsigned long long ptsMs);
// A seek was performed, the one at the start included, successful or not.
using PlaybackSeekDoneCallback = void (*)(unsigned int sessionId);

// What both sessions have in common.
class RECORD_API CPlaybackControls {
 public:
  CPlaybackControls(const CPlaybackControls&) = delete;
  CPlaybackControls& operator=(const CPlaybackControls&) = delete;

  int Start();  // 0, also when it plays already; -1 without a thread. Returns at once.
  int Stop();   // waits until no callback runs any more; 0

  // These return 0 at once and take effect with the next frame.
  int Seek(long target);  // seconds since 1970, any day; in a session of one file seconds into the file
  int Fast(int speed);  // 1 to 16; 0: normal speed. From 4 on only key frames are shown. Other values are ignored.
  int Slow(int speed);  // 1 to 16 times as long, without audio; 0: normal speed. Other values are ignored.
  int Pause();
  int UnPause();
  int SetAovMode();  // the camera sends a picture now and then: long gaps are shown as one second

  int SeekNextIFrame();  // skips to the next key frame; waits for a frame that is being paced; 0
  unsigned int GetSessionID() const;
  int GetParams(VIDEO_PARAM* video, AUDIO_PARAM* audio);  // last reported; 0, or -1 before the first file
  bool IsPlaying();                    // false when stopped, and once all is played, until the next seek
  unsigned int GetFrameStamp() const;  // in a push callback: the frame's time stamp as its file holds it, ms

  // Steps of the session's own thread.
  int CloseFile();
  int Work();
  static void* PlaybackThread(void* session);  // of a CPlaybackControls*

 protected:
  explicit CPlaybackControls(std::shared_ptr<record::PlaybackPump> pump);
  ~CPlaybackControls();

  std::shared_ptr<record::PlaybackPump> m_pump;
};

// A day of one channel.
class RECORD_API CPlaybackSession : public CPlaybackControls {
 public:
  // `seekTime`: where to begin, seconds since 1970; its local day is the day that is played. Channel 0 plays the
  // files of streams 1 and 2, every other channel those of 4 and 6. Any callback may be null.
  CPlaybackSession(unsigned int sessionId, int channel, long seekTime, PlaybackParamsCallback params,
                   PlaybackVideoCallback videoPush, PlaybackAudioCallback audioPush,
                   PlaybackSeekDoneCallback seekDone);
  ~CPlaybackSession();

  int isPlayBackOneVideo();  // stop at the end of the file that the seek found; 0
  int GetChannel() const;
  int GetPlayTime(long& time) const;  // the time given to the constructor, however far play has come; 0
  // What is left: nDuration of the playing file, nStartSecond of the day, in seconds counted from the point last
  // sought to. Returns the playing file's start, as in `out`. Also prints a line on standard output.
  unsigned int GetPlaybackFileInfo(PlaybackFileInfo& out);
  std::string GetPlayingFile();  // its path; "" when there is none
  std::string GetEndedFile();    // last played to its end since the last seek; "" when there is none

  // Steps of the session's own thread: 0 or -1.
  int SearchFiles();
  int NextFile();
  int InnerSeek(long time);
  int OpenFile(std::string path, const PlaybackFileInfo& info);

  bool IsSameDay(long a, long b) const;  // in local time
  bool IsToday(long time) const;
  // From ".../YYYYMMDD/HHMMSS..."; 0 when the path does not tell.
  unsigned int GetStartTimestampByFileName(std::string path) const;
  unsigned int GetStartSecondByFileName(std::string path) const;

 private:
  record::DayPlayer& Player() const;
};

// One named file, played from its begin, once.
class RECORD_API CPlayFileSession : public CPlaybackControls {
 public:
  CPlayFileSession(unsigned int sessionId, std::string path, PlaybackParamsCallback params,
                   PlaybackVideoCallback videoPush, PlaybackAudioCallback audioPush,
                   PlaybackSeekDoneCallback seekDone);
  ~CPlayFileSession();

  int GetPlaybackFileTime(unsigned long& time);  // the reader's position when it had opened the file: 0; returns 0

  // Steps of the session's own thread: 0 or -1. An offset below the file time is refused.
  int OpenFile();
  int InnerSeek(int offset);

 private:
  record::FilePlayer& Player() const;
};

#endif
