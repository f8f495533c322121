#include "playback/file_replayer.h"

#include <algorithm>
#include <exception>

#include "base/clock.h"
#include "base/log.h"
#include "storage/layout.h"
#include "storage/lock_state.h"

namespace record {
namespace {

thread_local const FileReplayer* t_replayer = nullptr;

constexpr int kFileIdleMs = 10;
constexpr std::uint64_t kLookMs = 1000;

// "YYYYMMDD/HHMMSS..." of a path, or the path.
const char* DayAndName(const std::string& path) {
  constexpr size_t kDayLength = 8;
  const size_t slash = path.rfind('/');
  return path.c_str() + (slash == std::string::npos || slash < kDayLength ? 0 : slash - kDayLength);
}

// The first frame of a file is at 0, which is no time for the pacer.
std::uint64_t PacedTime(const MediaFrame& frame) {
  return frame.offsetMs + 1ULL;
}

}  // namespace

int FileReplayer::Start() {
  if (m_thread.IsCurrent()) return 0;
  const std::lock_guard<std::mutex> lock(m_startMutex);
  if (m_thread.Exists()) {
    if (m_isRunning) return 0;
    m_thread.Join();  // it was stopped from inside a callback
  }
  if (m_file.Open(m_path) != 0 || m_file.GetParams(m_video, m_audio) != 0) return -1;
  m_isContinuation = m_before && m_before->ReachInto(m_file);
  m_isAtEnd = m_hasToldEnd = m_hasFailed = false;
  m_wasRecorded = m_follow;
  m_lookedAt = 0;
  m_isRunning = true;
  m_pacer.Restart(GetCurrentTimeStamp_u64());
  if (m_thread.Start("ReplayThread", [self = shared_from_this()] { self->Run(); })) return 0;
  m_isRunning = false;
  m_file.Close();
  return -1;
}

void FileReplayer::Stop() {
  m_isRunning = false;
  m_thread.Join();
}

void FileReplayer::Seek(const Target& target) {
  const std::lock_guard<std::mutex> lock(m_mutex);
  m_target = target;
}

int FileReplayer::SetSpeed(int wanted, int sign) {
  if (wanted < 0 || wanted > kFastest) return -1;
  m_speed = wanted == 0 ? kNormalSpeed : sign * wanted;
  return 0;
}

const FileReplayer* FileReplayer::OfThisThread() {
  return t_replayer;
}

void FileReplayer::Run() {
  t_replayer = this;
  while (m_isRunning) {
    try {
      Step();
    } catch (const std::exception& error) {
      RECORD_LOG("%s\n\n", error.what());
      GiveUp();
    }
  }
  m_queue.Clear();
  m_file.Close();
}

void FileReplayer::Step() {
  const bool isPaused = m_isPaused;  // looked at first: what was sought before Resume() counts
  PerformSeek();
  const bool hasRead = ReadAhead();
  if (m_queue.IsEmpty()) {
    if (m_isAtEnd && !isPaused) TakeEnd();
    if (!hasRead) SleepMs(kFileIdleMs);
  } else if (!isPaused && IsDue() && !IsWaitWanted()) {
    Deliver(m_queue.Pop());
  } else if (!hasRead) {
    SleepMs(kFileIdleMs);
  }
}

// The file ends here, until something else is sought.
void FileReplayer::GiveUp() {
  m_queue.Clear();
  m_isAtEnd = m_hasFailed = true;
}

void FileReplayer::PerformSeek() {
  std::optional<Target> target;
  {
    const std::lock_guard<std::mutex> lock(m_mutex);
    target.swap(m_target);
  }
  if (!target) return;
  const long long length = std::max(m_file.Reader().GetTimeDuration(), 0);
  const long long seconds =
      target->isPercent ? std::min(length * std::clamp(target->value, 0, 100) / 100, std::max(length - 1, 0LL))
                        : target->value;
  if (seconds < 0 || m_file.Seek(static_cast<unsigned long>(seconds)) != 0) return;
  if (m_before) m_before->Forget();
  m_queue.Clear();
  m_pacer.Restart(GetCurrentTimeStamp_u64());
  m_isAtEnd = m_hasToldEnd = m_hasFailed = false;
}

// One frame at most. While only key frames are shown they are not read ahead: who slows down then finds the frames
// between them.
bool FileReplayer::ReadAhead() {
  const bool keysOnly = m_speed >= kKeyFramesFromSpeed;
  if (m_isAtEnd || !m_queue.HasRoom() || (keysOnly && !m_queue.IsEmpty())) return false;
  MediaFrame frame;
  const int length = m_file.Read(frame);
  if (length < 0 || (length == 0 && ++m_emptyReads >= kMostEmptyReads)) {
    m_isAtEnd = true;
    return false;
  }
  if (length == 0) return true;
  m_emptyReads = 0;
  const bool isShown = !keysOnly || (frame.isVideo && frame.isKey);
  if (!(m_before && m_before->Take(frame)) && isShown) m_queue.Push(std::move(frame));
  if (keysOnly && m_file.Reader().MoveNextKeyFrame() == 0 && m_before) m_before->Skipped();
  return true;
}

// Not by the lock file alone: one that a crash left behind stays. Who holds it is looked up in a list of the
// kernel, so not with every idle round.
bool FileReplayer::IsBeingRecorded() {
  const std::uint64_t now = GetCurrentTimeStamp_u64();
  if (m_lookedAt != 0 && now - m_lookedAt < kLookMs) return m_isRecorded;
  m_lookedAt = now;
  m_isRecorded = GetLockState(LockFilePath(DayAndName(m_path))) == LockState::Held;
  return m_isRecorded;
}

void FileReplayer::TakeEnd() {
  if (m_hasToldEnd) return;
  const bool isRecorded = m_follow && !m_hasFailed && IsBeingRecorded();
  if (isRecorded || (m_wasRecorded && !m_hasFailed)) {  // more may come, or may have come at the last moment
    m_wasRecorded = isRecorded;
    m_isAtEnd = false;
    m_emptyReads = 0;
    SleepMs(kFileIdleMs);
  } else {
    m_hasToldEnd = true;
    if (m_callbacks.readError) m_callbacks.readError(m_context);
  }
}

bool FileReplayer::IsWaitWanted() const {
  return m_callbacks.waitQuery && m_callbacks.waitQuery(m_context) != 0;
}

// Audio goes with the picture in front of it.
bool FileReplayer::IsDue() {
  const MediaFrame& frame = m_queue.Front();
  return !frame.isVideo || m_pacer.LeftUntil(PacedTime(frame), m_speed, GetCurrentTimeStamp_u64()) < kNapMs;
}

void FileReplayer::Deliver(const MediaFrame& frame) {
  const int speed = m_speed;
  // The callbacks take plain bytes; nobody else reads them any more.
  char* bytes = reinterpret_cast<char*>(frame.owned.get());
  const auto offset = static_cast<int>(frame.offsetMs);
  if (!frame.isVideo) {
    if (speed == kNormalSpeed && m_callbacks.audio) m_callbacks.audio(m_context, bytes, frame.length, offset);
    return;
  }
  if (speed >= kKeyFramesFromSpeed && !frame.isKey) return;
  m_pacer.Shown(PacedTime(frame), speed, GetCurrentTimeStamp_u64());
  if (m_callbacks.video) m_callbacks.video(m_context, bytes, frame.length, offset, frame.isKey ? 1 : 0);
}

}  // namespace record
