// What stands behind a CReplayer; its thread owns it together with the CReplayer.
#ifndef PLAYBACK_FILE_REPLAYER_H
#define PLAYBACK_FILE_REPLAYER_H

#include <atomic>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "base/worker_thread.h"
#include "format/media_file.h"
#include "format/repeated_frames.h"
#include "playback/pacing.h"
#include "playback/replay_queue.h"
#include "record/replay.h"

namespace record {

class FileReplayer : public std::enable_shared_from_this<FileReplayer> {
 public:
  struct Callbacks {
    ReplayWaitQuery waitQuery = nullptr;
    ReplayReadError readError = nullptr;
    ReplayVideoFrame video = nullptr;
    ReplayAudioFrame audio = nullptr;
  };
  struct Target {
    bool isPercent;
    int value;
  };

  FileReplayer(const char* path, ReplayContext context, bool follow)
      : m_path(path ? path : ""), m_context(context), m_follow(follow) {}

  void SetCallbacks(const Callbacks& callbacks) { m_callbacks = callbacks; }
  // The frames that came before this file: what it repeats of them is left out. Before Start().
  void Continue(std::shared_ptr<RepeatedFrames> before) { m_before = std::move(before); }

  int Start();
  void Stop();
  void SetPaused(bool paused) { m_isPaused = paused; }
  void Seek(const Target& target);
  int SetSpeed(int wanted, int sign);
  static const FileReplayer* OfThisThread();  // whose thread the caller's is; null for others

  // Whether the frames before reach into this file. After Start() it is the thread's.
  bool IsContinuation() const { return m_isContinuation; }
  const VIDEO_PARAM& Video() const { return m_video; }
  const AUDIO_PARAM& Audio() const { return m_audio; }

 private:
  void Run();
  void PerformSeek();
  bool ReadAhead();
  void TakeEnd();
  bool IsBeingRecorded();
  void GiveUp();
  void Step();
  bool IsWaitWanted() const;
  bool IsDue();
  void Deliver(const MediaFrame& frame);

  const std::string m_path;
  const ReplayContext m_context;
  const bool m_follow;
  Callbacks m_callbacks;
  std::shared_ptr<RepeatedFrames> m_before;
  bool m_isContinuation = false;
  VIDEO_PARAM m_video = {};
  AUDIO_PARAM m_audio = {};

  std::atomic<bool> m_isRunning{false};
  std::atomic<bool> m_isPaused{false};
  std::atomic<int> m_speed{kNormalSpeed};

  // Of the thread.
  MediaFile m_file;
  ReplayQueue m_queue;
  Pacer m_pacer;
  bool m_isAtEnd = false;
  bool m_hasToldEnd = false;
  bool m_hasFailed = false;  // nothing more can be read
  bool m_wasRecorded =
      false;  // when the end was reached last; true before, since the end shows ahead of its frames
  bool m_isRecorded = false;     // when it was looked at
  std::uint64_t m_lookedAt = 0;  // run time, ms; 0: never
  int m_emptyReads = 0;

  std::mutex m_mutex;  // guards the target
  std::optional<Target> m_target;

  std::mutex m_startMutex;
  WorkerThread m_thread;
};

}  // namespace record

#endif
