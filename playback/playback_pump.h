// What both sessions share: the thread, the controls and the loop that reads, paces and pushes frames.
#ifndef PLAYBACK_PLAYBACK_PUMP_H
#define PLAYBACK_PLAYBACK_PUMP_H

#include <atomic>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "base/worker_thread.h"
#include "format/media_file.h"
#include "format/repeated_frames.h"
#include "playback/pacing.h"
#include "record/platform.h"
#include "record/playback.h"

namespace record {

struct PlaybackCallbacks {
  PlaybackParamsCallback params;
  PlaybackVideoCallback videoPush;
  PlaybackAudioCallback audioPush;
  PlaybackSeekDoneCallback seekDone;
};

// The session's thread owns the pump together with the session, so that a session may be deleted on its own
// thread.
class PlaybackPump : public std::enable_shared_from_this<PlaybackPump> {
 public:
  PlaybackPump(unsigned sessionId, const PlaybackCallbacks& callbacks);
  virtual ~PlaybackPump() = default;
  PlaybackPump(const PlaybackPump&) = delete;
  PlaybackPump& operator=(const PlaybackPump&) = delete;

  int Start();
  void Stop();
  virtual void Seek(long target) { SeekTo(target); }
  void Fast(int speed);
  void Slow(int speed);
  void SetPaused(bool paused) { m_isPaused = paused; }
  void SetAovMode() { m_isAov = true; }
  void SeekNextIFrame();
  int GetParams(VIDEO_PARAM* video, AUDIO_PARAM* audio);
  unsigned SessionId() const { return m_sessionId; }
  unsigned FrameStamp() const { return m_frameStamp; }
  bool IsPlaying();
  void ThreadMain();

  // What the two sessions do differently.
  virtual int Work() = 0;
  virtual int InnerSeek(long long target) = 0;

  // Takes the lock.
  void CloseFile();

 protected:
  // The session lock. Callbacks run on the worker while it holds the lock; what they call finds it held.
  class Lock {
   public:
    Lock(PlaybackPump& pump, unsigned line);
    ~Lock() { Release(); }
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;
    void Release();

   private:
    PlaybackPump& m_pump;
    bool m_holds;
  };

  virtual std::uint64_t BaseMs() const = 0;            // added to a frame's time within its file
  virtual const std::string& PlayingPath() const = 0;  // under the lock
  virtual bool AtEnd() = 0;                            // of the playing file; whether playback goes on

  // The calling thread is the worker while this lives; at its end the file is closed.
  class Worker {
   public:
    explicit Worker(PlaybackPump& pump);
    ~Worker();
    Worker(const Worker&) = delete;
    Worker& operator=(const Worker&) = delete;

   private:
    PlaybackPump& m_pump;
  };

  bool IsRunning() const { return m_isRunning; }
  void SeekTo(long long target);  // with the next frame
  void Loop();                    // until it is stopped or playback is over
  // Opens the file and reports its parameters if they are new. 0 or -1. REQUIRES: the lock is held.
  int OpenReader(const std::string& path);
  virtual void LogOpened(const std::string& path) = 0;  // the line that tells of an opened file
  void FinishSeek(Lock& lock);                          // releases the lock

  MediaFile m_file{{kLogModuleLifecycle, "\n\n"}};
  RepeatedFrames m_repeated;
  std::mutex m_viewMutex;  // what other threads ask for without waiting for a frame that is being paced

 private:
  void SetIdle(bool idle);
  void SetOver(bool over);
  void PerformPendingSeek();
  bool PumpFrame();
  void IdleWithoutFile(Lock& lock);
  bool TakeNothing(int length, Lock& lock);
  void Deliver(const MediaFrame& frame, int speed);
  void PushAudio(const MediaFrame& frame, std::uint64_t ptsMs);
  void PushVideo(const MediaFrame& frame, std::uint64_t ptsMs, int speed);
  bool WaitUntilDue(std::uint64_t ptsMs, int speed);
  void Nap(int milliseconds);
  void ReportParams(const std::string& path, const VIDEO_PARAM& video, const AUDIO_PARAM& audio);
  bool HaveParamsChanged(const std::string& path, const VIDEO_PARAM& video, const AUDIO_PARAM& audio) const;

  const unsigned m_sessionId;
  const PlaybackCallbacks m_callbacks;

  std::atomic<bool> m_isRunning{false};
  std::atomic<bool> m_isPaused{false};
  std::atomic<bool> m_isAov{false};
  std::atomic<int> m_speed{kNormalSpeed};
  std::atomic<unsigned> m_frameStamp{0};

  CMutex m_mutex;  // the session lock: reader, playing file, file map, pacing

  // Of the worker, under the session lock.
  bool m_workerHoldsLock = false;
  Pacer m_pacer;
  SparseDetector m_sparse;
  unsigned m_idlePasses = 0;
  int m_emptyReads = 0;  // in a row

  // Guarded by m_viewMutex; the parameters are written under the session lock, too.
  std::optional<long long> m_pendingSeek;
  bool m_isIdle = false;  // nothing is left to be played
  bool m_isOver = false;  // the worker has ended
  bool m_hasParams = false;
  VIDEO_PARAM m_video = {};
  AUDIO_PARAM m_audio = {};

  std::mutex m_startMutex;
  WorkerThread m_thread;
};

}  // namespace record

#endif
