#include "playback/playback_pump.h"

#include <strings.h>

#include <new>

#include "base/clock.h"

namespace record {
namespace {

constexpr int kPauseMs = 20;
constexpr int kIdleMs = 100;
constexpr int kFullMs = 500;
constexpr int kPushTries = 10;
constexpr unsigned kIdlePassesPerLog = 20;

thread_local const PlaybackPump* t_worker = nullptr;  // whose loop this thread runs

}  // namespace

PlaybackPump::Lock::Lock(PlaybackPump& pump, unsigned line) : m_pump(pump) {
  const bool isWorker = t_worker == &pump;
  m_holds = !(isWorker && pump.m_workerHoldsLock);
  if (!m_holds) return;
  pump.m_mutex.Lock(line);
  if (isWorker) pump.m_workerHoldsLock = true;
}

void PlaybackPump::Lock::Release() {
  if (!m_holds) return;
  m_holds = false;
  if (t_worker == &m_pump) m_pump.m_workerHoldsLock = false;
  m_pump.m_mutex.Unlock();
}

PlaybackPump::PlaybackPump(unsigned sessionId, const PlaybackCallbacks& callbacks)
    : m_sessionId(sessionId), m_callbacks(callbacks) {}

// ------------------------------------------------------------------------------------------- controls

int PlaybackPump::Start() {
  if (m_thread.IsCurrent()) return 0;
  const std::lock_guard<std::mutex> lock(m_startMutex);
  if (m_thread.Exists()) {
    if (m_isRunning) return 0;
    m_thread.Join();  // it was stopped from inside a callback
  }
  m_isRunning = true;
  SetOver(false);
  if (m_thread.Start("PlaybackThread", [self = shared_from_this()] { self->ThreadMain(); })) return 0;
  m_isRunning = false;
  return -1;
}

// On the worker itself, inside a callback, the frame being shown may be the reader's: the loop closes the file
// when it ends.
void PlaybackPump::Stop() {
  m_isRunning = false;
  if (t_worker == this) return;
  m_thread.Join();
  CloseFile();
}

void PlaybackPump::ThreadMain() {
  try {
    Work();
  } catch (const std::bad_alloc&) {
    RECORD_LOG_MODULE_TEXT(kLogModuleLifecycle, "malloc failed.\n");
  }
  SetOver(true);
  RECORD_LOG_MODULE_TEXT(kLogModuleLifecycle, "exited main loop.\n\n");
}

void PlaybackPump::SeekTo(long long target) {
  const std::lock_guard<std::mutex> lock(m_viewMutex);
  m_pendingSeek = target;
  m_isIdle = false;
}

void PlaybackPump::Fast(int speed) {
  if (speed == 0) {
    m_speed = kNormalSpeed;
    RECORD_LOG_TEXT("quit fast play\n\n");
  } else if (speed >= 1 && speed <= kFastest) {
    m_speed = speed;
  } else {
    RECORD_LOG_TEXT("Invalid Fast speed\n\n");
  }
}

void PlaybackPump::Slow(int speed) {
  if (speed == 0) {
    m_speed = kNormalSpeed;
    RECORD_LOG_TEXT("quit slow play\n\n");
  } else if (speed >= 1 && speed <= kFastest) {
    m_speed = -speed;
  } else {
    RECORD_LOG_TEXT("Invalid slow speed\n\n");
  }
}

void PlaybackPump::SeekNextIFrame() {
  const Lock lock(*this, __LINE__);
  if (m_file.IsOpen() && m_file.Reader().MoveNextKeyFrame() == 0) m_repeated.Skipped();
}

int PlaybackPump::GetParams(VIDEO_PARAM* video, AUDIO_PARAM* audio) {
  const std::lock_guard<std::mutex> lock(m_viewMutex);
  if (!m_hasParams) return -1;
  if (video) *video = m_video;
  if (audio) *audio = m_audio;
  return 0;
}

bool PlaybackPump::IsPlaying() {
  const std::lock_guard<std::mutex> lock(m_viewMutex);
  return m_isRunning && !m_isIdle && !m_isOver;
}

// A seek that comes too late for the worker does not count as playing.
void PlaybackPump::SetOver(bool over) {
  const std::lock_guard<std::mutex> lock(m_viewMutex);
  m_isOver = over;
  m_isIdle = false;
}

// A seek that waits to be carried out counts as playing.
void PlaybackPump::SetIdle(bool idle) {
  const std::lock_guard<std::mutex> lock(m_viewMutex);
  m_isIdle = idle && !m_pendingSeek;
}

// ------------------------------------------------------------------------------------------- the loop

PlaybackPump::Worker::Worker(PlaybackPump& pump) : m_pump(pump) {
  t_worker = &pump;
}

PlaybackPump::Worker::~Worker() {
  m_pump.CloseFile();
  t_worker = nullptr;
}

void PlaybackPump::Loop() {
  while (m_isRunning) {
    PerformPendingSeek();
    if (m_isPaused)
      Nap(kPauseMs);
    else if (!PumpFrame())
      break;
  }
}

void PlaybackPump::PerformPendingSeek() {
  std::optional<long long> target;
  {
    const std::lock_guard<std::mutex> lock(m_viewMutex);
    target.swap(m_pendingSeek);
  }
  if (target) InnerSeek(*target);
}

// One frame: read, pushed when it is due, freed. False when playback is over.
bool PlaybackPump::PumpFrame() {
  Lock lock(*this, __LINE__);
  if (!m_file.IsOpen()) {
    IdleWithoutFile(lock);
    return true;
  }
  const int speed = m_speed;
  {
    MediaFrame frame;
    const int length = m_file.Read(frame);
    if (length < 1) return TakeNothing(length, lock);
    m_emptyReads = 0;
    if (!m_repeated.Take(frame)) Deliver(frame, speed);
  }
  lock.Release();
  if (speed >= kKeyFramesFromSpeed) SeekNextIFrame();
  return true;
}

void PlaybackPump::IdleWithoutFile(Lock& lock) {
  if (m_idlePasses++ % kIdlePassesPerLog == 0) RECORD_LOG_TEXT("m_pVideoFile=NULL\n");
  lock.Release();
  SetIdle(true);
  Nap(kIdleMs);
}

bool PlaybackPump::TakeNothing(int length, Lock& lock) {
  const bool isEnd = length < 0 || ++m_emptyReads >= kMostEmptyReads;
  if (isEnd) m_emptyReads = 0;
  const std::string path = isEnd ? PlayingPath() : "";
  lock.Release();
  if (!isEnd) return true;
  RECORD_LOG_MODULE(kLogModuleLifecycle, "read finished: %s\n", path.c_str());
  return AtEnd();
}

void PlaybackPump::Deliver(const MediaFrame& frame, int speed) {
  const std::uint64_t ptsMs = BaseMs() + frame.offsetMs;
  m_frameStamp = frame.stamp;
  if (!frame.isVideo) {
    if (speed == kNormalSpeed && m_callbacks.audioPush) PushAudio(frame, ptsMs);
    return;
  }
  if (m_isAov) m_sparse.Take(frame.offsetMs);
  if ((speed < kKeyFramesFromSpeed || frame.isKey) && m_callbacks.videoPush) PushVideo(frame, ptsMs, speed);
}

void PlaybackPump::PushAudio(const MediaFrame& frame, std::uint64_t ptsMs) {
  const auto length = static_cast<unsigned>(frame.length);
  for (int tries = 0; tries < kPushTries && m_isRunning; ++tries) {
    if (m_callbacks.audioPush(m_sessionId, reinterpret_cast<const char*>(frame.data), length, ptsMs) != BUF_FULL)
      break;
    RECORD_LOG("Send Audio len %d return BUF_FULL.\n", frame.length);
    Nap(kFullMs);
  }
  SleepMs(1);
}

void PlaybackPump::PushVideo(const MediaFrame& frame, std::uint64_t ptsMs, int speed) {
  if (!WaitUntilDue(ptsMs, speed)) return;
  const auto length = static_cast<unsigned>(frame.length);
  for (int tries = 0; tries < kPushTries && m_isRunning; ++tries) {
    m_pacer.Shown(ptsMs, speed, GetCurrentTimeStamp_u64());
    if (m_callbacks.videoPush(m_sessionId, reinterpret_cast<const char*>(frame.data), length, ptsMs,
                              frame.isKey ? 1 : 0) != BUF_FULL)
      break;
    RECORD_LOG("Send Video len %d return BUF_FULL. Speed=%d\n", frame.length, speed);
    Nap(kFullMs);
  }
}

bool PlaybackPump::WaitUntilDue(std::uint64_t ptsMs, int speed) {
  constexpr std::uint64_t kSparseNaps = 100;
  const std::uint64_t left = m_pacer.LeftUntil(ptsMs, speed, GetCurrentTimeStamp_u64());
  // A second a frame, whatever the gap that was recorded; the schedule begins anew with each.
  const bool isSparse = left > 0 && speed == kNormalSpeed && m_isAov && m_sparse.IsSparse();
  for (std::uint64_t naps = isSparse ? kSparseNaps : left / kNapMs; naps > 0 && m_isRunning; --naps)
    SleepMs(kNapMs);
  if (isSparse) m_pacer.Restart(GetCurrentTimeStamp_u64());
  return m_isRunning;
}

// In naps, so that nobody who stops the session waits for longer than one.
void PlaybackPump::Nap(int milliseconds) {
  for (int slept = 0; slept < milliseconds && m_isRunning; slept += kNapMs) SleepMs(kNapMs);
}

// --------------------------------------------------------------------------------------- opening a file

void PlaybackPump::CloseFile() {
  const Lock lock(*this, __LINE__);
  m_file.Close();
}

int PlaybackPump::OpenReader(const std::string& path) {
  VIDEO_PARAM video;
  AUDIO_PARAM audio;
  if (m_file.Open(path) != 0) return -1;
  LogOpened(path);
  if (m_file.GetParams(video, audio) != 0) return -1;
  RECORD_LOG_MODULE(kLogModuleLifecycle, "%s GetMeidaParam OK!!!\n\n", path.c_str());
  m_emptyReads = 0;
  ReportParams(path, video, audio);
  return 0;
}

void PlaybackPump::ReportParams(const std::string& path, const VIDEO_PARAM& video, const AUDIO_PARAM& audio) {
  if (m_hasParams && !HaveParamsChanged(path, video, audio)) return;
  {
    const std::lock_guard<std::mutex> lock(m_viewMutex);
    m_video = video;
    m_audio = audio;
    m_hasParams = true;
  }
  if (m_callbacks.params) m_callbacks.params(m_sessionId, &m_video, &m_audio);
}

bool PlaybackPump::HaveParamsChanged(const std::string& path, const VIDEO_PARAM& video,
                                     const AUDIO_PARAM& audio) const {
  bool changed = false;
  const auto size = [](std::uint32_t pixels) { return static_cast<unsigned long>(pixels); };
  if (video.width != m_video.width || video.height != m_video.height) {
    RECORD_LOG_MODULE(kLogModuleLifecycle, "%s: %luX%lu -> %luX%lu\n", path.c_str(), size(m_video.width),
                      size(m_video.height), size(video.width), size(video.height));
    changed = true;
  }
  if (strcasecmp(video.codec, m_video.codec) != 0) {
    RECORD_LOG_MODULE(kLogModuleLifecycle, "%s: video %s -> %s\n", path.c_str(), m_video.codec, video.codec);
    changed = true;
  }
  if (strcasecmp(audio.codec, m_audio.codec) != 0) {
    RECORD_LOG_MODULE(kLogModuleLifecycle, "%s: audio %s -> %s\n", path.c_str(), m_audio.codec, audio.codec);
    changed = true;
  }
  return changed;
}

// REQUIRES: the lock is held.
void PlaybackPump::FinishSeek(Lock& lock) {
  m_pacer.Restart(GetCurrentTimeStamp_u64());
  lock.Release();
  if (m_callbacks.seekDone) m_callbacks.seekDone(m_sessionId);
}

}  // namespace record
