// Begin and end of a run: codec configuration, readers, the file, and what has to be left in order.
#include "record/record_run.h"

#include <pthread.h>

#include <algorithm>
#include <string>

#include "base/clock.h"
#include "base/device_path.h"
#include "base/log.h"
#include "base/mutex_lock.h"
#include "record/maintenance.h"
#include "record/pre_record.h"
#include "storage/type_index.h"

namespace record {
namespace {

constexpr int kConfigAttempts = 30000;
constexpr int kConfigWaitMs = 10;
constexpr int kRegisterAttempts = 100;
constexpr int kRegisterWaitMs = 100;
constexpr int kMediaBufferSize = 204800;
constexpr int kRamRecordSeconds = 10;
constexpr int kDualSensorStream = 5;
constexpr int kDualSensorKeyStream = 2;
constexpr unsigned kFirstTimelapseStampMs = 100;

int TimelapseIntervalMs(int framesPerSecond) {
  if (framesPerSecond < 1) return 40;
  if (framesPerSecond > 60) return 16;
  return 1000 / framesPerSecond;
}

bool WritesFromStreamMemory() {
  return HasFlag(flag::kPn210) || HasFlag(flag::kPn330) || HasFlag(flag::kLessMemory);
}

void RequestKeyFrame(int stream) {
  SetForceIdr(stream == kDualSensorStream && HasFlag(flag::kDualSensor) ? kDualSensorKeyStream : stream);
}

unsigned ThreadIdForLog() {
  return static_cast<unsigned>(pthread_self());
}

}  // namespace

RecordRun::RecordRun(CRecordTask& task)
    : m_task(task),
      m_hasMediaBuffer(!WritesFromStreamMemory()),
      m_timelapseIntervalMs(TimelapseIntervalMs(task.m_param.timelapse_fps)),
      m_timelapseStampMs(kFirstTimelapseStampMs) {
  RECORD_TASK_PARAM& param = task.m_param;
  if (param.timelapse_fps < 1) param.timelapse_fps = 25;
  if (param.timelapse_fps > 60) param.timelapse_fps = 60;
  if (m_hasMediaBuffer) MakeMediaBuffer(kMediaBufferSize);
}

RecordRun::~RecordRun() {
  Unregister();
}

bool RecordRun::IsKind(int kind) const {
  return m_task.m_param.recordtype == kind || m_task.m_param.recordtype == kind + RECORD_KIND_SECOND_SET;
}

bool RecordRun::IsUnlimited() const {
  return IsTimelapse() && IsKind(RECORD_KIND_SCHEDULE);
}

bool RecordRun::Record() {
  UseSubStreamForRam();
  if (HasVideo()) {
    RequestKeyFrame(m_task.m_param.stream);
    if (!FetchConfig()) return m_task.m_running == 0;
    if (!RegisterVideo()) return true;
  }
  if (HasAudio() && !RegisterAudio()) {
    Unregister();
    return true;
  }
  RECORD_LOG("enter main loop, thread id = %x ... \n\n", ThreadIdForLog());
  if (Begin()) {
    if (DrainPreRecorded()) Loop();
  }
  End();
  return true;
}

// RAM holds a short clip of the sub stream. Settled before anything is read, so that configuration, reader and
// file name all belong to the stream that is recorded.
void RecordRun::UseSubStreamForRam() {
  RECORD_TASK_PARAM& param = m_task.m_param;
  const std::string ram = DevicePath(kRamRecordDirectory);
  const bool inRam = std::string(m_task.GetStorageBase()).compare(0, ram.size(), ram) == 0;
  if (!inRam || std::min(param.duration, param.max_file_seconds) <= kRamRecordSeconds) return;
  param.duration = kRamRecordSeconds;
  param.stream = STREAM_SUB;
}

bool RecordRun::FetchConfig() {
  for (int attempt = 0; attempt < kConfigAttempts && m_task.m_running != 0; ++attempt) {
    StreamFrame config = {};
    const int result = GetStreamData(STREAM_GET_CONFIG, m_task.m_param.stream, m_task.m_readerId, &config);
    if (result >= 0) {
      m_task.SetVolData(reinterpret_cast<char*>(config.data), config.length);
      RECORD_LOG("got and set vol ok! = [%d, %d] \n\n", result, config.length);
      return true;
    }
    SleepMs(kConfigWaitMs);
  }
  if (m_task.m_running != 0) RECORD_LOG_TEXT("get vol failed, system must be restared!!!!!!\n\n");
  return false;
}

bool RecordRun::RegisterReader(int stream, const char* medium, double* lookBackMs) {
  const double wanted = *lookBackMs;
  RECORD_LOG("begin register %s reader %#x, diff_time = %.0f \n\n", medium,
             static_cast<unsigned>(m_task.m_readerId), wanted);
  for (int attempt = 0; attempt < kRegisterAttempts && m_task.m_running != 0; ++attempt) {
    *lookBackMs = wanted;
    const int result = GetStreamData(STREAM_REGISTER, stream, m_task.m_readerId, lookBackMs);
    if (result >= 0) {
      RECORD_LOG("register %s reader OK, result diff_time = %.0f\n\n", medium, *lookBackMs);
      return true;
    }
    RECORD_LOG("register %s reader failed! = %d \n\n", medium, result);
    SleepMs(kRegisterWaitMs);
  }
  return false;
}

bool RecordRun::RegisterVideo() {
  m_lookBackMs = m_task.m_param.pre_second * 1000.0;
  m_readsVideo = RegisterReader(m_task.m_param.stream, "video", &m_lookBackMs);
  return m_readsVideo;
}

bool RecordRun::RegisterAudio() {
  double lookBackMs = m_task.m_param.pre_second * 1000.0;
  if (HasVideo()) lookBackMs = std::max(lookBackMs, m_lookBackMs);
  m_readsAudio = RegisterReader(STREAM_AUDIO, "audio", &lookBackMs);
  return m_readsAudio;
}

void RecordRun::Unregister() {
  if (m_readsVideo) GetStreamData(STREAM_UNREGISTER, m_task.m_param.stream, m_task.m_readerId, nullptr);
  if (m_readsAudio) GetStreamData(STREAM_UNREGISTER, STREAM_AUDIO, m_task.m_readerId, nullptr);
  m_readsVideo = m_readsAudio = false;
}

bool RecordRun::Begin() {
  m_beginMs = CTaskbase::GetCurrentTime();
  const WallTime wall = WallNow();
  m_startMs = static_cast<double>(wall.seconds) * 1000 + wall.microseconds / 1000;
  BeginLimits();
  {
    const MutexLock lock(m_task.m_mutex, __LINE__);
    if (m_task.RecordBegin() < 0) {
      RECORD_LOG("record begin failed, reader = %d\n\n", static_cast<int>(m_task.m_readerId));
      return false;
    }
  }
  {
    const MutexLock lock(m_task.m_mutex, __LINE__);
    m_task.loadRecTypeIdx();
  }
  {
    const MutexLock lock(m_task.m_mutex, __LINE__);
    update_record_status_file(RECORD_STATUS_RECORDING);
  }
  const int duration = IsUnlimited() ? -1 : static_cast<int>(m_budgetMs / 1000);
  RECORD_LOG("enter main loop, thread id = %x, readerid %d.  nowtime %u, task_duration %d seconds... \n\n",
             ThreadIdForLog(), static_cast<int>(m_task.m_readerId), m_beginMs, duration);
  return true;
}

void RecordRun::BeginLimits() {
  const RECORD_TASK_PARAM& param = m_task.m_param;
  const int duration = std::min(param.duration, param.max_file_seconds);
  const bool cutOnMinutes = IsKind(RECORD_KIND_SCHEDULE) || IsKind(RECORD_KIND_MANUAL);
  m_budgetMs = duration * 1000LL;
  m_minutesForSwitch = cutOnMinutes && duration >= 1 && duration % 60 == 0 ? duration / 60 : -1;
  if (IsUnlimited()) m_budgetMs = m_minutesForSwitch = -1;
  ReadWallClock();
  m_weekday = m_local.tm_wday;
  m_minute = m_local.tm_min;
  m_minuteOfDay = MinuteOfDay(m_local.tm_hour, m_local.tm_min);
}

void RecordRun::ReadWallClock() {
  const long long seconds = WallNow().seconds;
  if (seconds == m_localSeconds) return;
  m_localSeconds = seconds;
  m_local = LocalTime(seconds);
}

void RecordRun::End() {
  RECORD_LOG_TEXT("exit main loop...\n\n");
  {
    const MutexLock lock(m_task.m_mutex, __LINE__);
    if (m_task.RecordEnd() < 0)
      RECORD_LOG("record end failed, reader = %d\n\n", static_cast<int>(m_task.m_readerId));
    TakeMinute();
    m_task.updateRecTypeIdx(m_minuteOfDay);
  }
  update_record_status_file(RECORD_STATUS_IDLE);
  if (m_hasMediaBuffer) {
    RECORD_LOG_TEXT("before delete media_buf\n\n");
    m_mediaBuffer.reset();
    RECORD_LOG_TEXT("after delete media_buf\n\n");
  }
  Unregister();
  RECORD_LOG("exited main loop, thread id = %x \n\n", ThreadIdForLog());
  m_task.m_running = 0;
}

}  // namespace record
