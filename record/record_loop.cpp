// The passes of a run: when the file ends, and how frames come in.
#include <algorithm>
#include <cmath>
#include <cstring>
#include <new>

#include "base/clock.h"
#include "base/log.h"
#include "base/mutex_lock.h"
#include "record/maintenance.h"
#include "record/pre_record.h"
#include "record/pre_record_drain.h"
#include "record/record_run.h"
#include "storage/type_index.h"

namespace record {
namespace {

constexpr int kPassMs = 5;
constexpr unsigned kStampEveryMs = 30000;
constexpr long long kNoFileIsLongerMs = 3600000;
constexpr long long kSwitchNotBeforeMs = 3000;
constexpr int kFrameTail = 16;
constexpr int kBufferStep = 10240;
constexpr int kAudioFramesBehind = 3;  // a pass, while audio is far behind the video
constexpr int kPreRecordWindowSeconds = 10;
constexpr long long kMiB = 1048576;

// Time stamps reach the writers in whole milliseconds modulo 2^32.
unsigned WriterStamp(double timestampMs) {
  return static_cast<unsigned>(static_cast<unsigned long long>(std::max(timestampMs, 0.0)));
}

}  // namespace

void RecordRun::Loop() {
  EndReason reason = EndReason::kNone;
  while (reason == EndReason::kNone) reason = Pass();
}

EndReason RecordRun::Pass() {
  const EndReason reason = ShouldEnd();
  if (reason != EndReason::kNone) return reason;
  if (HasVideo() && TakeVideo() == Take::kFailed) return EndReason::kWriter;
  if (HasAudio() && !IsTimelapse() && (!HasVideo() || m_firstVideoMs > 0)) {
    const EndReason audio = TakeAudio();
    if (audio != EndReason::kNone) return audio;
  }
  {
    const MutexLock lock(m_task.m_mutex, __LINE__);
    m_task.SyncAV();
  }
  SleepMs(kPassMs);
  return EndReason::kNone;
}

EndReason RecordRun::ShouldEnd() {
  if (m_task.m_running == 0) return EndReason::kStopped;
  ReadWallClock();
  if (m_local.tm_wday != m_weekday) {
    RECORD_LOG("weekday changed from %d -> %d.\n\n", m_weekday, m_local.tm_wday);
    return EndReason::kWeekday;
  }
  m_minuteOfDay = MinuteOfDay(m_local.tm_hour, m_local.tm_min);
  const unsigned now = CTaskbase::GetCurrentTime();
  if (!m_stamped || now - m_stampMs > kStampEveryMs) {
    m_stamped = true;
    m_stampMs = now;
    StampMinute();
  }
  const EndReason reason = TimeLimits(now);
  if (reason != EndReason::kNone) return reason;
  if (m_task.m_writeFailed != 0) {
    RECORD_LOG("write failed, end %s\n\n", m_task.m_filePath);
    return EndReason::kWriteFailed;
  }
  if (m_task.m_fileFull) {
    RECORD_LOG("file full, end %s\n\n", m_task.m_filePath);
    return EndReason::kFull;
  }
  return EndReason::kNone;
}

// A minute belongs to the first task that recorded in it: another task of the day may have marked it since this
// one loaded the index.
bool RecordRun::TakeMinute() {
  char& minute = m_task.m_minuteTypes[m_minuteOfDay];
  if (minute == kNoRecording) minute = ReadTypeIndexMinute(m_task.m_typeIndexPath, m_minuteOfDay);
  if (minute != kNoRecording) return false;
  minute = static_cast<char>(m_task.m_param.rectype_code);
  return true;
}

void RecordRun::StampMinute() {
  if (!TakeMinute()) return;
  int result;
  {
    const MutexLock lock(m_task.m_mutex, __LINE__);
    result = m_task.updateRecTypeIdx(m_minuteOfDay);
  }
  update_record_status_file(result == 0 ? RECORD_STATUS_RECORDING : RECORD_STATUS_INDEX_FAILED);
}

EndReason RecordRun::TimeLimits(unsigned now) {
  if (IsUnlimited()) {
    const std::uint32_t total = m_task.m_info.totalBytes;
    if (total <= m_task.m_param.timelapse_max_mb * kMiB) return EndReason::kNone;
    RECORD_LOG("Timelapse filesize %d reached setting %d MB.\n\n", static_cast<int>(total),
               m_task.m_param.timelapse_max_mb);
    return EndReason::kSize;
  }
  const long long elapsed = static_cast<int>(now - m_beginMs);  // the clock wraps; the difference does not
  if (elapsed < -kNoFileIsLongerMs || elapsed > kNoFileIsLongerMs) {
    RECORD_LOG("uncertain duration got, interval %lld.\n\n", elapsed);
    return EndReason::kClock;
  }
  if (m_local.tm_min != m_minute) {
    m_minute = m_local.tm_min;
    if (m_minutesForSwitch >= 1 && elapsed >= kSwitchNotBeforeMs && m_minute % m_minutesForSwitch == 0) {
      RECORD_LOG("Nowtime %02d:%02d:%02d nMinsForSwitchFile=%d. switch to next record file\n\n", m_local.tm_hour,
                 m_local.tm_min, m_local.tm_sec, m_minutesForSwitch);
      return EndReason::kSwitchMinute;
    }
  }
  if (elapsed > m_budgetMs) {
    RECORD_LOG("record duration reached, vtime = %u, ntime = %u, ftime = %u\n\n", m_beginMs, now,
               static_cast<unsigned>(m_budgetMs));
    return EndReason::kBudget;
  }
  return EndReason::kNone;
}

RecordRun::Take RecordRun::TakeVideo() {
  StreamFrame frame = {};
  const int stream = m_task.m_param.stream;
  const int result = GetStreamData(STREAM_READ, stream, m_task.m_readerId, &frame);
  if (result < 0) RECORD_LOG_TEXT("read video frame failed!\n\n");
  if (result <= 0) return Take::kNothing;
  // What the pre-record buffer held was written from there.
  if (frame.frameIndex <= m_lastDrainedVideo) {
    GetStreamData(STREAM_RELEASE, stream, m_task.m_readerId, nullptr);
    return Take::kFrame;
  }
  m_lastDrainedVideo = -1;  // an encoder that is set up anew counts its frames from 0 again
  return WriteVideo(frame, true) ? Take::kFrame : Take::kFailed;
}

// Applies the drop rule and the write rule; a live frame is released once its bytes are copied or written.
bool RecordRun::WriteVideo(const StreamFrame& frame, bool isLive) {
  const int stream = m_task.m_param.stream;
  const std::int64_t lastKey = m_videoSequence.KeyIndex();
  const std::int64_t lastFrame = m_videoSequence.FrameIndex();
  const bool accepted = m_videoSequence.Accept(frame.keyFrame != 0, frame.keyframeIndex, frame.frameIndex);
  if (!accepted) {
    if (isLive) {
      RECORD_LOG("drop frame, keyframe_index=%d, frame_index=%d, lastKeyFrameIdx = %d, lastFrameIdx=%d\n\n",
                 static_cast<int>(frame.keyframeIndex), static_cast<int>(frame.frameIndex),
                 static_cast<int>(lastKey), static_cast<int>(lastFrame));
      GetStreamData(STREAM_RELEASE, stream, m_task.m_readerId, nullptr);
    } else {
      RECORD_LOG("drop frame, keyframe_index=%d, frame_index=%d, lastKeyFrameIdx=%d, lastFrameIdx=%d\n\n",
                 static_cast<int>(frame.keyframeIndex), static_cast<int>(frame.frameIndex),
                 static_cast<int>(lastKey), static_cast<int>(lastFrame));
    }
    return true;
  }
  const int length = m_task.m_param.keep_frame_tail == 0 ? frame.length - kFrameTail : frame.length;
  return PassVideo(frame, length, isLive);
}

bool RecordRun::PassVideo(const StreamFrame& frame, int length, bool isLive) {
  char* data = reinterpret_cast<char*>(frame.data);
  bool held = isLive;
  const auto release = [&] {
    if (held) GetStreamData(STREAM_RELEASE, m_task.m_param.stream, m_task.m_readerId, nullptr);
    held = false;
  };
  bool written = true;
  if (length > 0) {
    char* const copy = m_hasMediaBuffer ? Copied(frame.data, length) : nullptr;
    if (copy != nullptr) {
      data = copy;
      release();  // the slow write must not hold up the stream service
    }
    if (IsTimelapse()) {
      written = frame.keyFrame == 0 || WriteTimelapse(data, length, frame.timestampMs);
    } else {
      written = CallVideoWriter(frame.keyFrame, data, length, WriterStamp(frame.timestampMs));
      if (m_firstVideoMs <= 0) m_firstVideoMs = frame.timestampMs;
      m_lastVideoMs = frame.timestampMs;
    }
  }
  release();
  return written;
}

bool RecordRun::WriteTimelapse(char* data, int length, double timestampMs) {
  const RECORD_TASK_PARAM& param = m_task.m_param;
  if (m_timelapseFrames > 0 && timestampMs - m_lastSampleMs < param.timelapse_interval * 1000.0) return true;
  const int keyFrame = m_timelapseFrames % param.timelapse_fps == 0 ? 1 : 0;
  if (!CallVideoWriter(keyFrame, data, length, m_timelapseStampMs)) return false;
  m_lastSampleMs = timestampMs;
  m_timelapseStampMs += static_cast<unsigned>(m_timelapseIntervalMs);
  ++m_timelapseFrames;
  return true;
}

bool RecordRun::CallVideoWriter(int keyFrame, char* data, int length, unsigned timestampMs) {
  const MutexLock lock(m_task.m_mutex, __LINE__);
  if (m_task.RecordOneVideoFrame(keyFrame, data, length, timestampMs) >= 0) return true;
  RECORD_LOG_TEXT("RecordOneVideoFrame failed!\n\n");
  return false;
}

// Null when there is no memory for it: the frame is then written from where it stands.
char* RecordRun::Copied(const unsigned char* data, int length) {
  if (length > m_mediaBufferSize) {
    const int size = (length / kBufferStep + 1) * kBufferStep;
    if (!MakeMediaBuffer(size)) return nullptr;
    RECORD_LOG("malloc new media buffer ok, size = %d\n\n", size);
  }
  std::memcpy(m_mediaBuffer.get(), data, static_cast<size_t>(length));
  return m_mediaBuffer.get();
}

bool RecordRun::MakeMediaBuffer(int size) {
  m_mediaBuffer.reset();  // never both at once: memory is short where buffers grow
  m_mediaBuffer.reset(new (std::nothrow) char[static_cast<size_t>(size)]);
  m_mediaBufferSize = m_mediaBuffer != nullptr ? size : 0;
  return m_mediaBuffer != nullptr;
}

EndReason RecordRun::TakeAudio() {
  const bool farBehind = HasVideo() && m_lastVideoMs - m_lastAudioMs > m_lookBackMs;
  const int frames = farBehind ? kAudioFramesBehind : 1;
  for (int i = 0; i < frames; ++i) {
    double timestampMs = 0;
    const Take take = TakeOneAudio(timestampMs);
    if (take == Take::kFailed) return EndReason::kWriter;
    if (take == Take::kNothing || (HasVideo() && timestampMs > m_lastVideoMs)) break;
  }
  return EndReason::kNone;
}

RecordRun::Take RecordRun::TakeOneAudio(double& timestampMs) {
  StreamFrame frame = {};
  const int result = GetStreamData(STREAM_READ, STREAM_AUDIO, m_task.m_readerId, &frame);
  if (result < 0) RECORD_LOG_TEXT("read audio frame failed!\n\n");
  if (result <= 0) return Take::kNothing;
  timestampMs = frame.timestampMs;
  bool written = true;
  if (frame.frameIndex > m_lastDrainedAudio) {
    m_lastDrainedAudio = -1;
    written = WriteAudio(frame.data, frame.length, frame.timestampMs);
  }
  GetStreamData(STREAM_RELEASE, STREAM_AUDIO, m_task.m_readerId, nullptr);
  return written ? Take::kFrame : Take::kFailed;
}

bool RecordRun::WriteAudio(unsigned char* data, int length, double timestampMs) {
  m_lastAudioMs = timestampMs;
  if (length <= 0) return true;
  const MutexLock lock(m_task.m_mutex, __LINE__);
  if (m_task.RecordOneAudioFrame(reinterpret_cast<char*>(data), length, WriterStamp(timestampMs)) >= 0)
    return true;
  RECORD_LOG_TEXT("RecordOneAudioFrame failed!\n\n");
  return false;
}

// Writes what was recorded before the start; the live readers go on behind it. False when the writer failed.
bool RecordRun::DrainPreRecorded() {
  const int stream = m_task.m_param.stream;
  // The other streams of a device have no ring: theirs would be the sub stream's.
  const bool hasRing = stream == STREAM_MAIN || stream == STREAM_SUB;
  if (!hasRing || m_task.m_param.pre_second <= 0 || PreRecGetStatus() != 1) return true;
  PreRecordDrain drain(stream);
  drain.DropExpiredFrames(kPreRecordWindowSeconds);
  Take taken = Take::kFrame;
  while (taken == Take::kFrame && m_task.m_running != 0 && m_task.m_writeFailed == 0) {
    RingFrameInfo info = {};
    int length = 0;
    unsigned char* data = drain.Next(&length, &info);
    taken = data != nullptr ? DrainOne(info, data, length) : Take::kNothing;
  }
  return taken != Take::kFailed;
}

// kNothing when the drain is over: the first video frame newer than the start of the file ends it.
RecordRun::Take RecordRun::DrainOne(const RingFrameInfo& info, unsigned char* data, int length) {
  if (info.type == RING_FRAME_AUDIO) {
    if (!HasAudio() || IsTimelapse() || (HasVideo() && m_firstVideoMs <= 0)) return Take::kFrame;
    m_lastDrainedAudio = info.frameIndex;
    return WriteAudio(data, length, info.timestampMs) ? Take::kFrame : Take::kFailed;
  }
  if (!HasVideo()) return Take::kFrame;
  const StreamFrame frame = {data,
                             length,
                             info.type == RING_FRAME_KEY ? 1 : 0,
                             info.timestampMs,
                             static_cast<std::int64_t>(info.keyframeIndex),
                             info.frameIndex};
  const int framesBefore = m_task.m_info.videoFrames;
  if (!WriteVideo(frame, false)) return Take::kFailed;
  m_lastDrainedVideo = m_videoSequence.FrameIndex();
  if (info.timestampMs > m_startMs) {
    if (m_firstVideoMs > 0)
      m_task.m_param.pre_second = static_cast<int>((info.timestampMs - m_firstVideoMs) / 1000);
    return Take::kNothing;
  }
  if (m_task.m_info.videoFrames > framesBefore) ++m_task.m_preRecordedVideoFrames;
  return Take::kFrame;
}

}  // namespace record
