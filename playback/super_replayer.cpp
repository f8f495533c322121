#include <sys/prctl.h>

#include <atomic>
#include <condition_variable>
#include <cstring>
#include <exception>
#include <mutex>
#include <string>

#include "base/clock.h"
#include "base/log.h"
#include "base/no_throw.h"
#include "playback/file_replayer.h"
#include "playback/replay_file.h"
#include "record/replay.h"

using namespace record;

// Owned by the SuperReplayer and by the threads that move on to a next file.
struct SuperReplayer::State {
  void* context;
  pthread_mutex_t* search;
  PushCallback push;
  FinishedCallback_t finished;
  bool follow;

  std::atomic<bool> isFirstFrame{false};

  std::mutex playMutex;  // one file is begun at a time; nothing waits for a replayer's thread while it is held

  std::mutex mutex;  // guards what follows
  unsigned run = 0;  // counts what was begun and stopped: a move to a next file belongs to the run that ended
  unsigned endedRun = 0;
  std::unique_ptr<CReplayer> current;
  const FileReplayer* active = nullptr;  // behind the current one, or the one that is just being started
  std::string path;
  unsigned long long baseMs = 0;
  unsigned long long durationMs = 0;
  Media media = {};
  std::shared_ptr<RepeatedFrames> shown;  // what was shown of the files before
  int moves = 0;                          // threads that move on to a next file
  std::condition_variable moved;

  enum class Began { kPlaying, kNothing, kSuperseded };
  Began Play(SuperReplayer& self, unsigned long long timeMs, unsigned expected);

 private:
  unsigned BeginRun(unsigned expected);
  Began PlayFile(SuperReplayer& self, unsigned long long timeMs, unsigned ownRun, const std::string& ended);
  bool Take(const ReplayFile& file, unsigned ownRun, const std::shared_ptr<FileReplayer>& replayer,
            bool continues);
  friend class SuperReplayer;
};

namespace {

constexpr unsigned long long kMs = 1000;
constexpr unsigned kPastEnd = 1;  // seconds behind the end of a file, where the next one is looked for

thread_local const void* t_moving = nullptr;  // the state for which this thread moves on to a next file

bool Contains(const char (&name)[32], const char* part) {
  return std::string(name, strnlen(name, sizeof name)).find(part) != std::string::npos;
}

SuperReplayer::Media Describe(const VIDEO_PARAM& video, const AUDIO_PARAM& audio) {
  const bool isH265 = Contains(video.codec, "H265") || Contains(video.codec, "H.265");
  const int otherClass = Contains(video.codec, "MPEG") ? 3 : 1;
  const int otherCode = Contains(audio.codec, "PCMA") ? 101 : 110;
  return {isH265 ? 2 : otherClass,
          Contains(audio.codec, "PCMU") ? 102 : otherCode,
          video.width,
          video.height,
          video.framerate,
          audio.samplerate,
          audio.channels};
}

void LogStart(const ReplayFile& file) {
  const struct tm at = LocalTime(file.timestamp);
  RECORD_LOG("stamp:%u\n\n", static_cast<unsigned>(file.timestamp));
  RECORD_LOG("start Play %04d-%02d-%02d %02d:%02d:%02d, %llu\n\n", at.tm_year + 1900, at.tm_mon + 1, at.tm_mday,
             at.tm_hour, at.tm_min, at.tm_sec, static_cast<unsigned long long>(file.timestamp) * kMs);
}

}  // namespace

// Stops what is played. The new run's number; 0 when `expected` is not the current run any more (0 expects
// nothing).
unsigned SuperReplayer::State::BeginRun(unsigned expected) {
  std::unique_ptr<CReplayer> ended;  // destroyed without the lock: its thread may be in a callback that takes it
  const std::lock_guard<std::mutex> lock(mutex);
  if (expected != 0 && run != expected) return 0;
  ended.swap(current);
  active = nullptr;
  if (++run == 0) run = 1;
  return run;
}

// Without memory there is nothing to be played: who waits for the end hears of it then, too.
SuperReplayer::State::Began SuperReplayer::State::Play(SuperReplayer& self, unsigned long long timeMs,
                                                       unsigned expected) {
  const unsigned ownRun = BeginRun(expected);
  if (ownRun == 0) return Began::kSuperseded;
  Began began = Began::kNothing;
  try {
    std::string ended;
    {
      const std::lock_guard<std::mutex> lock(mutex);
      if (expected != 0) ended = path;
    }
    began = PlayFile(self, timeMs, ownRun, ended);
  } catch (const std::exception& error) {
    RECORD_LOG("%s\n\n", error.what());
  }
  const std::lock_guard<std::mutex> lock(mutex);
  return began == Began::kNothing && run != ownRun ? Began::kSuperseded : began;
}

// Makes the file and its replayer the current ones, unless the run is over.
bool SuperReplayer::State::Take(const ReplayFile& file, unsigned ownRun,
                                const std::shared_ptr<FileReplayer>& replayer, bool continues) {
  const std::lock_guard<std::mutex> lock(mutex);
  if (run != ownRun) return false;
  path = file.path;
  baseMs = static_cast<unsigned long long>(file.timestamp) * kMs;
  durationMs = static_cast<unsigned long long>(file.duration) * kMs;
  if (!continues || !shown) shown = std::make_shared<RepeatedFrames>();
  shown->BeginFile(static_cast<std::uint32_t>(file.timestamp));
  replayer->Continue(shown);
  active = replayer.get();
  return true;
}

SuperReplayer::State::Began SuperReplayer::State::PlayFile(SuperReplayer& self, unsigned long long timeMs,
                                                           unsigned ownRun, const std::string& ended) {
  std::unique_ptr<CReplayer> replayer;  // destroyed, should it come to that, without the lock
  const std::lock_guard<std::mutex> playing(playMutex);
  isFirstFrame = true;
  ReplayFile file;
  if (FindReplayFile(static_cast<long long>(timeMs / kMs), search, ended, file) != 0) return Began::kNothing;
  RECORD_LOG("fileNameStr:%s \n\n", file.path.c_str());
  if (DescribeReplayFile(file) != 0) return Began::kNothing;
  LogStart(file);

  replayer = std::make_unique<CReplayer>(file.path.data(), reinterpret_cast<ReplayContext>(&self), follow);
  replayer->SetCallbacks(replay_isneed_wait, replay_readerror_db, Replay_SendVideoFrame, Replay_SendAudioFrame);
  if (!Take(file, ownRun, replayer->m_state, !ended.empty())) return Began::kSuperseded;
  replayer->Pause();  // until the seek is asked for: no frame from before it
  if (replayer->Start() < 0) {
    RECORD_LOG_TEXT("player start failed..\n");
    return Began::kNothing;
  }
  // What was shown before reaches into a file that continues it: that is left out frame by frame. Nothing was
  // shown of a file that begins no earlier than the one before ended.
  const bool isNew = !ended.empty() && file.offset <= kPastEnd;
  if (file.offset != 0 && !isNew && !replayer->m_state->IsContinuation())
    replayer->Seek(static_cast<int>(file.offset));
  const std::lock_guard<std::mutex> lock(mutex);
  if (run != ownRun) return Began::kSuperseded;
  media = Describe(replayer->GetVideoParam(), replayer->GetAudioParam());
  current = std::move(replayer);
  current->Resume();  // not before: what the first frame's callback asks for or deletes is this file's
  return Began::kPlaying;
}

// ------------------------------------------------------------------------------------------ the interface

SuperReplayer::SuperReplayer(void* context, pthread_mutex_t* search, PushCallback push,
                             FinishedCallback_t finished, bool follow)
    : m_state(std::make_shared<State>()) {
  m_state->context = context;
  m_state->search = search;
  m_state->push = push;
  m_state->finished = finished;
  m_state->follow = follow;
}

SuperReplayer::~SuperReplayer() {
  State& state = *m_state;
  state.BeginRun(0);
  const int own = t_moving == &state ? 1 : 0;
  std::unique_lock<std::mutex> lock(state.mutex);
  state.moved.wait(lock, [&] { return state.moves <= own; });
}

int SuperReplayer::Open(unsigned long long timeMs) {
  Stop();
  return new_recplay(timeMs);
}

void SuperReplayer::Stop() {
  m_state->BeginRun(0);
}

SuperReplayer::Media SuperReplayer::GetMedia() {
  const std::lock_guard<std::mutex> lock(m_state->mutex);
  return m_state->media;
}

int SuperReplayer::new_recplay(unsigned long long timeMs) try {
  return m_state->Play(*this, timeMs, 0) == State::Began::kPlaying ? 0 : -1;
}
RECORD_NO_THROW(-1)

int SuperReplayer::PushOutStream(bool firstFrame, int isVideo, char* frame, int length, unsigned long long ptsMs,
                                 int isKey) {
  return m_state->push ? m_state->push(m_state->context, firstFrame, isVideo, frame, length, ptsMs, isKey) : 0;
}

int SuperReplayer::FinishedCallback() {
  if (m_state->finished) m_state->finished(m_state->context);
  return 0;
}

void SuperReplayer::LockSearch() {
  if (m_state->search) pthread_mutex_lock(m_state->search);
}

void SuperReplayer::UnlockSearch() {
  if (m_state->search) pthread_mutex_unlock(m_state->search);
}

int SuperReplayer::GetFileDuration(const char* path, struct timeval* start) try {
  return ReplayFileDuration(path, start);
}
RECORD_NO_THROW(-1)

int SuperReplayer::GetFileStartTime(const char* path, struct tm* start) try {
  return ReplayFileStart(path, start);
}
RECORD_NO_THROW(-1)

unsigned long long SuperReplayer::BaseMs() {
  const std::lock_guard<std::mutex> lock(m_state->mutex);
  return m_state->baseMs;
}

// Keeps the object alive until its thread has moved on.
void* SuperReplayer::Move(void* argument) {
  auto* self = static_cast<SuperReplayer*>(argument);
  const std::shared_ptr<State> state = self->m_state;
  t_moving = state.get();
  replay_next_thread(self);  // its last callback may delete the object
  t_moving = nullptr;
  const std::lock_guard<std::mutex> lock(state->mutex);
  --state->moves;
  state->moved.notify_all();
  return nullptr;
}

int SuperReplayer::GoOn() {
  State& state = *m_state;
  {
    const std::lock_guard<std::mutex> lock(state.mutex);
    const FileReplayer* asking = FileReplayer::OfThisThread();
    if (asking && asking != state.active) return 0;  // stopped meanwhile
    state.endedRun = state.run;
    ++state.moves;
  }
  pthread_t thread;
  if (pthread_create(&thread, nullptr, Move, this) == 0) return 0;
  {
    const std::lock_guard<std::mutex> lock(state.mutex);
    --state.moves;
  }
  FinishedCallback();
  return 0;
}

namespace {

SuperReplayer& Of(ReplayContext context) {
  return *reinterpret_cast<SuperReplayer*>(context);  // NOLINT(performance-no-int-to-ptr): the interface's word
}

}  // namespace

int replay_isneed_wait(ReplayContext) {
  return 0;
}

int replay_readerror_db(ReplayContext context) {
  return Of(context).GoOn();
}

int Replay_SendVideoFrame(ReplayContext context, char* frame, int length, int offsetMs, int isKey) {
  SuperReplayer& replayer = Of(context);
  const unsigned long long ptsMs = replayer.BaseMs() + static_cast<unsigned>(offsetMs);
  return replayer.PushOutStream(replayer.m_state->isFirstFrame.exchange(false), 1, frame, length, ptsMs, isKey);
}

int Replay_SendAudioFrame(ReplayContext context, char* frame, int length, int offsetMs) {
  SuperReplayer& replayer = Of(context);
  return replayer.PushOutStream(false, 0, frame, length, replayer.BaseMs() + static_cast<unsigned>(offsetMs), 0);
}

void* replay_next_thread(void* superReplayer) try {
  using Began = SuperReplayer::State::Began;
  auto& replayer = *static_cast<SuperReplayer*>(superReplayer);
  prctl(PR_SET_NAME, "replay_next_thread");
  pthread_detach(pthread_self());
  RECORD_LOG_TEXT("Play next file\n\n");
  unsigned long long next;
  unsigned ended;
  {
    const std::lock_guard<std::mutex> lock(replayer.m_state->mutex);
    next = replayer.m_state->baseMs + kMs * kPastEnd + replayer.m_state->durationMs;
    ended = replayer.m_state->endedRun != 0 ? replayer.m_state->endedRun : replayer.m_state->run;
  }
  if (replayer.m_state->Play(replayer, next, ended) == Began::kNothing) replayer.FinishedCallback();
  return nullptr;
}
RECORD_NO_THROW(nullptr)
