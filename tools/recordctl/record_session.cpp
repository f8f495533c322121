#include "tools/recordctl/record_session.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "base/clock.h"
#include "record/pre_record.h"
#include "record/storage.h"
#include "record/task_manager.h"
#include "tools/recordctl/output.h"
#include "tools/recordctl/record_report.h"
#include "tools/recordctl/root.h"
#include "tools/recordctl/signals.h"

namespace recordctl {
namespace {

using std::chrono::milliseconds;

constexpr int kNeedMB = 500;  // as the library asks of a medium
constexpr int kMostFailures = 5;
constexpr int kFirstPauseMs = 500;  // before the second attempt; each later one is twice as long
constexpr int kLongestLookBack = 15;
constexpr milliseconds kShortestRest{500};  // of the duration that is worth a file
constexpr milliseconds kSilence{1000};      // after the end of the source nothing more will come
constexpr std::int64_t kSmallestRing = 4 << 20;
constexpr std::int64_t kLargestRing = 64 << 20;
constexpr int kUnknownBitrate = 8000000;
constexpr int kGroupSeconds = 10;  // the longest group of pictures that is reckoned with

std::uint32_t WallStamp() {
  const record::WallTime now = record::WallNow();
  return static_cast<std::uint32_t>(now.seconds * 1000ULL + static_cast<unsigned>(now.microseconds) / 1000);
}

// Stamps wrap; their difference does not.
bool IsBefore(std::uint32_t stamp, std::uint32_t other) {
  return static_cast<std::int32_t>(stamp - other) < 0;
}

// Twice what the bit rate promises: cameras exceed it when the picture moves.
int RingBytes(int bitrate, int seconds) {
  const std::int64_t perSecond = (bitrate > 0 ? bitrate : kUnknownBitrate) / 8 * 2;
  return static_cast<int>(std::clamp(perSecond * (seconds + kGroupSeconds), kSmallestRing, kLargestRing));
}

}  // namespace

RecordSession::RecordSession(const Options& options, const RecordRequest& request)
    : m_options(options), m_request(request), m_progress(ChosenProgress(options)) {
  if (request.minFreeMB > 0) m_room = std::make_unique<RoomKeeper>(options, request.minFreeMB);
}

RecordSession::~RecordSession() {
  ReleasePreRecord();
  m_sources.Close();
}

int RecordSession::Run() {
  if (!m_uploads.Understand(m_request.uploads)) return kUsage;
  if (!MakeRoot(m_options) || !MakeRoom() || !OpenSources() || !DescribeSource()) return kFailed;
  const DeferSignals deferred;
  TaskManagerInit();
  m_uploads.Start();
  if (m_request.pre > 0) FillPreRecord();
  const bool recorded = RecordFiles();
  m_sources.Close();
  m_uploads.AwaitAttempts(m_progress);
  if (WasInterrupted()) return kInterrupted;
  return recorded && !m_uploads.HasRefused() ? kOk : kFailed;
}

bool RecordSession::HasRoom() const {
  if (GetStorageMediaIndex(nullptr, kNeedMB) >= 0) return true;
  const int freeMB = GetStorageFreeSpace(0);
  Say("no room in root " + m_options.root + ": " + std::to_string(freeMB) + " MB free, more than " +
      std::to_string(kNeedMB) + " MB are needed");
  return false;
}

bool RecordSession::MakeRoom() {
  if (m_room != nullptr) {
    if (!m_room->CanMakeRoom()) return false;
    m_room->MakeRoom();
  }
  return HasRoom();
}

bool RecordSession::OpenSources() {
  const RecordRequest& request = m_request;
  if (!m_sources.Open(m_options, STREAM_MAIN, request.input, request.loop, request.noAudio)) return false;
  return request.sub.empty() || m_sources.Open(m_options, STREAM_SUB, request.sub, request.loop, true);
}

// False when the container does not take the video.
bool RecordSession::DescribeSource() {
  m_sources.Describe(m_request.stream, m_media);
  if (m_request.noAudio) m_media.audio_type = AUDIO_CODEC_NONE;
  if (m_request.noAudio) m_media.audio_enable = 0;
  return FitMedia(m_request.container, m_media);
}

void RecordSession::FillPreRecord() {
  // The buffer waits for both streams; one that is never fed shall not hold up the other.
  if (m_request.sub.empty()) HostStreamSetConfig(STREAM_SUB, nullptr, 0);
  RECORD_TASK_PARAM main = {};
  RECORD_TASK_PARAM sub = {};
  m_sources.Describe(STREAM_MAIN, main);
  if (!m_request.sub.empty()) m_sources.Describe(STREAM_SUB, sub);
  const int subBytes =
      m_request.sub.empty() ? static_cast<int>(kSmallestRing) : RingBytes(sub.bitrate, m_request.pre);
  if (PreRecInit(main.audio_enable, RingBytes(main.bitrate, m_request.pre), subBytes) != 0) {
    Say("no memory for the pre-record buffer, recording without it");
    return;
  }
  m_buffering = true;
  const Clock::time_point begin = Clock::now();
  while (KeepsBuffering(begin + std::chrono::seconds(m_request.pre))) {
    if (m_progress.IsDue()) {
      const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(Clock::now() - begin).count();
      m_progress.Show(
          "filling pre-record buffer: " + std::to_string(seconds) + " of " + std::to_string(m_request.pre) + " s",
          {{"phase", "pre-record"},
           {"buffered", std::to_string(seconds)},
           {"wanted", std::to_string(m_request.pre)}});
    }
    record::SleepMs(kPollMs);
  }
}

bool RecordSession::KeepsBuffering(Clock::time_point until) {
  return !WasInterrupted() && Clock::now() < until && m_sources.Check(m_request.stream) == Sources::Health::kFlows;
}

void RecordSession::ReleasePreRecord() {
  if (!m_buffering) return;
  m_buffering = false;
  PreRecRelease();
}

// False when recording had to be given up.
bool RecordSession::RecordFiles() {
  m_begin = Clock::now();
  while (!m_done && !WasInterrupted()) {
    const Outcome outcome = RecordOneFile();
    if (outcome == Outcome::kFailed && !m_done && !TryAgain()) return false;
    if (m_done && outcome == Outcome::kFailed) return false;
    if (m_request.duration > 0 &&
        Clock::now() + kShortestRest >= m_begin + std::chrono::seconds(m_request.duration))
      m_done = true;
  }
  // Time that ran out while the medium took nothing is no success.
  return !m_sourceFailed && !m_wasCutShort && m_failures == 0;
}

bool RecordSession::TryAgain() {
  if (WasInterrupted()) return true;
  if (m_failures >= kMostFailures) {
    Say("giving up after " + std::to_string(m_failures) + " attempts");
    return false;
  }
  const auto until = Clock::now() + milliseconds(kFirstPauseMs << (m_failures - 1));
  while (Clock::now() < until && !WasInterrupted()) record::SleepMs(kPollMs);
  return true;
}

RecordSession::Outcome RecordSession::RecordOneFile() {
  m_watch = std::make_shared<TaskWatch>();
  if (m_room != nullptr) m_room->MakeRoom();
  if (!StartTask()) {
    ++m_failures;
    if (HasRoom()) Say("cannot record into root " + m_options.root + ": the medium does not take files");
    return Outcome::kFailed;
  }
  FollowTask();
  ReleasePreRecord();
  return Report();
}

int RecordSession::PlannedSeconds() const {
  if (m_request.duration == 0) return m_request.maxFile;
  const auto left = m_begin + std::chrono::seconds(m_request.duration) - Clock::now();
  const auto leftMs = std::chrono::duration_cast<milliseconds>(left).count();
  const int seconds = static_cast<int>(std::max<long long>((leftMs + 999) / 1000, 1));
  if (seconds >= m_request.maxFile) return m_request.maxFile;
  // The last file: it is ended from here. Were it planned with whole minutes, the library would cut it on the
  // wall clock.
  return (seconds + 1) % 60 == 0 ? seconds + 2 : seconds + 1;
}

// So far back that the key frame found there stands before the last frame that the file before holds. Counted
// from the newest frame, as the stream does: a camera that is away has none since.
int RecordSession::LookBackSeconds() const {
  if (m_files == 0 && m_request.pre > 0) return m_request.pre;
  std::uint32_t newest = 0;
  if (!m_hasRecorded || !Sources::NewestStamp(m_request.stream, newest)) return 1;
  const auto missing = static_cast<std::int32_t>(newest - m_lastStamp);
  return static_cast<int>(std::clamp(1 + std::lround(missing / 1000.0), 1L, static_cast<long>(kLongestLookBack)));
}

RECORD_TASK_PARAM RecordSession::TaskParameters() const {
  RECORD_TASK_PARAM param = m_media;
  param.recordtype = m_request.kind->code;
  param.rectype_code = m_request.kind->minuteType;
  param.pre_second = LookBackSeconds();
  param.duration = PlannedSeconds();
  param.max_file_seconds = m_request.maxFile;
  param.local_store = 1;
  param.keep_frame_tail = 1;
  return param;
}

bool RecordSession::StartTask() {
  RecordConfig config = {};
  config.local_enable = 1;
  std::unique_ptr<CRecordTask> task = NewWatchedTask(m_request.container, TaskParameters(), config, m_watch);
  m_uploads.AttachTo(*task);
  m_fileBegin = Clock::now();
  m_fileBeginStamp = WallStamp();
  if (TaskManagerAddTask(task.get()) < 0) return false;
  if (task->Start() != 0) {
    TaskManagerRemoveTask(task.get());
    return false;
  }
  (void)task.release();  // the record thread's from here on
  return true;
}

bool RecordSession::IsTaskGone() const {
  return TaskManagerGetTaskCount(m_request.kind->code, -1) == 0 && m_watch.use_count() == 1;
}

void RecordSession::StopTask() {
  while (TaskManagerStopTaskOnStorage(DevicePath("/mnt").c_str()) != 0) {
    Say("waiting for the medium to take the rest of the file");
  }
}

void RecordSession::FollowTask() {
  bool stopped = false;
  m_lastGrowth = Clock::now();
  while (!IsTaskGone()) {
    if (!stopped && ShouldStop()) {
      stopped = true;
      StopTask();
    }
    // Once a frame from behind the begin is written, all that was buffered before it is, too.
    if (m_watch->videoFrames > 0 && !IsBefore(m_watch->lastVideoStamp, m_fileBeginStamp)) ReleasePreRecord();
    if (m_room != nullptr) m_room->Tend(m_watch->GetFile().path);
    ShowProgress();
    m_uploads.Tell();
    record::SleepMs(kPollMs);
  }
}

bool RecordSession::ShouldStop() {
  if (m_request.duration > 0 && Clock::now() >= m_begin + std::chrono::seconds(m_request.duration)) m_done = true;
  if (WasInterrupted()) m_done = true;
  const Sources::Health health = m_sources.Check(m_request.stream);
  if (health == Sources::Health::kFailed) m_done = m_sourceFailed = true;
  if (health == Sources::Health::kEnded && HoldsAllOfTheSource()) m_done = true;
  return m_done;
}

// Whether the last frames that the source gave are written, or none has been for a while.
bool RecordSession::HoldsAllOfTheSource() {
  const long long frames = m_watch->videoFrames + m_watch->audioFrames;
  if (frames != m_framesSeen) m_lastGrowth = Clock::now();
  m_framesSeen = frames;
  if (Clock::now() - m_lastGrowth > kSilence) return true;
  std::uint32_t video = 0;
  std::uint32_t audio = 0;
  if (m_watch->videoFrames == 0 || !Sources::NewestStamp(m_request.stream, video)) return false;
  if (IsBefore(m_watch->lastVideoStamp, video)) return false;
  return m_media.audio_enable == 0 || !Sources::NewestStamp(STREAM_AUDIO, audio) ||
         (m_watch->audioFrames > 0 && !IsBefore(m_watch->lastAudioStamp, audio));
}

void RecordSession::ShowProgress() {
  if (!m_progress.IsDue()) return;
  const auto elapsed = std::chrono::duration_cast<milliseconds>(Clock::now() - m_begin).count();
  const TaskWatch::File file = m_watch->GetFile();
  ShowRecording(m_progress, *m_watch, file.path, elapsed, m_request.duration);
}

RecordSession::Outcome RecordSession::Report() {
  const TaskWatch::File file = m_watch->GetFile();
  if (file.path.empty()) {
    if (m_done) return Outcome::kWritten;  // stopped before it began
    ++m_failures;
    Say("cannot begin a file in root " + m_options.root);
    return Outcome::kFailed;
  }
  if (m_watch->videoFrames > 0) {
    m_hasRecorded = true;
    m_lastStamp = m_watch->lastVideoStamp;
  }
  ++m_files;
  PrintFinishedFile(m_options, *m_watch, file);
  if (!file.writeFailed) {
    m_failures = 0;
    return Outcome::kWritten;
  }
  ++m_failures;
  m_wasCutShort = true;
  Say("writing failed: " + file.path);
  return Outcome::kFailed;
}

}  // namespace recordctl
