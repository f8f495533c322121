// Replaying recordings from a point in time on, across files, gaps and midnight (not over a whole day without
// recordings): TimelineReplayerReader is asked for one frame after the other, SuperReplayer pushes them, paced,
// through a CReplayer a file. Nothing throws.
#ifndef RECORD_REPLAY_H
#define RECORD_REPLAY_H

#include <pthread.h>
#include <sys/time.h>

#include <cstdint>
#include <ctime>
#include <memory>

#include "record/types.h"

namespace record {
class FileReplayer;
}

// The context word of the replay functions: holds a pointer.
using ReplayContext = std::intptr_t;

// Non-zero: the consumer takes nothing now; asked again after 10 ms.
using ReplayWaitQuery = int (*)(ReplayContext context);
// The file has come to its end, or cannot be read further, also for lack of memory. Once; again after a seek.
using ReplayReadError = int (*)(ReplayContext context);
// A frame that is due; its bytes are valid during the call. `offsetMs`: within the file. The result is not used.
using ReplayVideoFrame = int (*)(ReplayContext context, char* frame, int length, int offsetMs, int isKey);
using ReplayAudioFrame = int (*)(ReplayContext context, char* frame, int length, int offsetMs);

// Replays one record file. Its thread reads ahead and calls back when frames are due. Every operation may be
// called from any thread, also from inside a callback, deleting the replayer included.
class RECORD_API CReplayer {
 public:
  // `follow`: at the end of a file that is being recorded wait for more of it, until its recorder has ended it or
  // has gone.
  CReplayer(char* path, ReplayContext context, bool follow);
  ~CReplayer();
  CReplayer(const CReplayer&) = delete;
  CReplayer& operator=(const CReplayer&) = delete;

  // Before Start(); each may be null.
  void SetCallbacks(ReplayWaitQuery waitQuery, ReplayReadError readError, ReplayVideoFrame video,
                    ReplayAudioFrame audio);

  int Start();  // opens the file; 0, or -1 when that fails or there is no thread
  int Stop();   // waits until no callback runs any more (inside one: takes effect when it returns); 0
  int Pause();
  int Resume();
  int Seek(int seconds);           // into the file; behind its end nothing changes
  int SeekByPercent(int percent);  // of its length, 0 to 100
  int Fast(int speed);             // 1 to 16, 0: normal speed; from 4 on key frames only. -1: another number
  int Slow(int speed);             // 1 to 16 times as long, 0: normal speed. -1: another number

  // Of the file that Start() opened; all zero before.
  const VIDEO_PARAM& GetVideoParam() const;
  const AUDIO_PARAM& GetAudioParam() const;

 private:
  friend class SuperReplayer;
  std::shared_ptr<record::FileReplayer> m_state;
};

// One frame a call, as fast as it is asked. Used by one thread at a time.
class RECORD_API TimelineReplayerReader {
 public:
  // `search` is held during every lookup and outlives the reader; shared with the other players.
  explicit TimelineReplayerReader(pthread_mutex_t* search);
  ~TimelineReplayerReader();
  TimelineReplayerReader(const TimelineReplayerReader&) = delete;
  TimelineReplayerReader& operator=(const TimelineReplayerReader&) = delete;

  // Seconds since 1970 (a `long` of 32 bits is read unsigned); a gap begins with the next file of the day. 0, or
  // -1 without a file.
  int open(long t);
  // The next frame; at the end of a file the next file's. Its length, and where it stands until the next call. 0:
  // none this time; -1: none any more, or not open. `offsetMs`: within its file (see get_start_timestamp).
  // `firstKey`: the first key frame since open, or of a file.
  int read(char** frame, long& isVideo, long& isKey, unsigned long& offsetMs, bool& firstKey);
  void close();
  unsigned int get_start_timestamp() const;  // of the open file, seconds since 1970
  void lock();                               // the search mutex
  void unlock();

  // Makes *buffer (malloc) larger than `needed` when it is not as large; what it held is lost. `capacity` is 0
  // when there is no memory.
  int expandFrameBuf(char** buffer, unsigned int& capacity, const unsigned int& needed);
  int GetFileDuration(const char* path);                     // seconds, from its side file; -1
  int GetFileStartTime(const char* path, struct tm* start);  // from its name, six fields are set; 0 or -1

 private:
  struct State;
  std::unique_ptr<State> m_state;
};

class SuperReplayer;

extern "C" {
// What a SuperReplayer gives to its CReplayer; the context is the SuperReplayer.
RECORD_API int replay_isneed_wait(ReplayContext context);   // 0: never
RECORD_API int replay_readerror_db(ReplayContext context);  // goes on to the next file, on a thread of its own
RECORD_API int Replay_SendVideoFrame(ReplayContext context, char* frame, int length, int offsetMs, int isKey);
RECORD_API int Replay_SendAudioFrame(ReplayContext context, char* frame, int length, int offsetMs);
RECORD_API void* replay_next_thread(void* superReplayer);
}

// Pushes the frames of the timeline, each when it is due. Every operation may be called from any thread, also from
// inside a callback.
class RECORD_API SuperReplayer {
 public:
  // `ptsMs`: since 1970. `firstFrame`: the first video frame of a file.
  using PushCallback = int (*)(void* context, bool firstFrame, int isVideo, char* frame, int length,
                               unsigned long long ptsMs, int isKey);
  using FinishedCallback_t = int (*)(void* context);  // no file follows; on a thread of its own

  // What is being played.
  struct Media {
    int videoClass;  // 1 H.264 or other, 2 H.265, 3 MPEG
    int audioCode;   // 102 PCMU, 101 PCMA, 110 other
    unsigned int width;
    unsigned int height;
    unsigned int framerate;
    unsigned int samplerate;
    unsigned int channels;
  };

  // `search` as in TimelineReplayerReader; `follow` as in CReplayer. `finished` may be null.
  SuperReplayer(void* context, pthread_mutex_t* search, PushCallback push, FinishedCallback_t finished,
                bool follow);
  ~SuperReplayer();  // stops, and waits for the move to a next file
  SuperReplayer(const SuperReplayer&) = delete;
  SuperReplayer& operator=(const SuperReplayer&) = delete;

  int Open(unsigned long long timeMs);  // since 1970; 0, or -1 when there is nothing to play
  void Stop();
  Media GetMedia();

  int new_recplay(unsigned long long timeMs);
  int PushOutStream(bool firstFrame, int isVideo, char* frame, int length, unsigned long long ptsMs, int isKey);
  int FinishedCallback();
  void LockSearch();
  void UnlockSearch();
  int GetFileDuration(const char* path, struct timeval* start);  // as above; the start, too, unless null
  int GetFileStartTime(const char* path, struct tm* start);

 private:
  // What the functions below do for the replayer.
  friend int replay_readerror_db(ReplayContext context);
  friend int Replay_SendVideoFrame(ReplayContext context, char* frame, int length, int offsetMs, int isKey);
  friend int Replay_SendAudioFrame(ReplayContext context, char* frame, int length, int offsetMs);
  friend void* replay_next_thread(void* superReplayer);
  unsigned long long BaseMs();
  int GoOn();
  static void* Move(void* superReplayer);

  struct State;
  std::shared_ptr<State> m_state;
};

#endif
