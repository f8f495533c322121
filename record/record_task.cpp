// The life of a record task up to its thread: construction, the choice of storage, the start.
#include "record/task.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>

#include "base/device_path.h"
#include "base/log.h"
#include "base/no_throw.h"
#include "record/log_prefix.h"
#include "record/maintenance.h"
#include "record/platform.h"
#include "record/record_thread.h"
#include "record/storage.h"
#include "storage/type_index.h"

namespace record {
namespace {

constexpr int kMaxRamRecordAge = 90;

using PathResult = std::unique_ptr<char[]>;

void LogParameters(const RECORD_TASK_PARAM& p) {
  RECORD_LOG(
      "recordtype = %d, \nstream = %d, \nvideo_enable = %d, \naudio_enable = %d, \nwidth  =%d, \nheight =%d, "
      "\nbitrate=%d, \nframerate  = %d, \npre_second = %d, \nduration   = %d, \nmax_file_seconds = "
      "%d,\nlocal_store = %d,\nremote_store= %d,\n\n",
      p.recordtype, p.stream, p.video_enable, p.audio_enable, p.width, p.height, p.bitrate, p.framerate,
      p.pre_second, p.duration, p.max_file_seconds, p.local_store, p.remote_store);
  RECORD_LOG("video type=%d, audio type=%d, samplerate=%d, bits=%d, channels=%d\n\n", p.video_type, p.audio_type,
             p.samplerate, p.bits, p.channels);
}

}  // namespace
}  // namespace record

CRecordTask::CRecordTask(const RECORD_TASK_PARAM& param, const RecordConfig& config)
    : CTaskbase(param.recordtype),
      m_param(param),
      m_logPrefix{},
      m_filePath{},
      m_typeIndexPath{},
      m_lockFile(-1),
      m_info{},
      m_times{},
      m_preRecordedVideoFrames(0),
      m_fileFull(false),
      m_writeFailed(0) {
  m_config = config;
  std::memset(m_minuteTypes, record::kNoRecording, sizeof m_minuteTypes);
  std::snprintf(m_logPrefix, sizeof m_logPrefix, "%s", record::LogPrefix().c_str());
  record::LogParameters(m_param);
  if (m_param.audio_type < 0) m_param.audio_enable = 0;
  m_recordType = param.recordtype;
  m_streamSelector = param.stream;
  m_local_store = config.local_enable != 0 ? param.local_store : 0;
  m_remote_store = config.network_enable != 0 ? param.remote_store : 0;
}

CRecordTask::~CRecordTask() {
  RemoveLockFile();
}

int CRecordTask::Start() {
  return StartThread(RecordThread);
}

int CRecordTask::Stop() {
  m_running = 0;
  return 0;
}

void CRecordTask::SetVolData(char* data, int length) {
  const int kept = std::clamp(length, 0, static_cast<int>(sizeof m_info.volData));
  if (kept > 0) std::memcpy(m_info.volData, data, static_cast<size_t>(kept));
  m_info.volLength = kept;
}

void CRecordTask::SyncAV() {}

void CRecordTask::GetTaskParam(RECORD_TASK_PARAM* param, RecordConfig* config) const {
  if (param == nullptr || config == nullptr) {
    RECORD_LOG_TEXT("param is NULL!\n\n");
    return;
  }
  *param = m_param;
  *config = m_config;
}

const char* CRecordTask::GetFilePath() const {
  return m_filePath;
}

const RecordInfoStruct& CRecordTask::GetRecordInfo() const {
  return m_info;
}

int CRecordTask::IsWriteFailed() const {
  return m_writeFailed;
}

// RAM as the last resort: only for what is uploaded, and only while no such record waits there.
bool CRecordTask::ChooseRamStorage(const char* flagFile) {
  if (!record::HasFlag(flagFile) || m_ftp == nullptr) return false;
  const std::string directory = DevicePath(record::kRamRecordDirectory);
  DelExpiredTmpRecordFile(directory.c_str(), record::kMaxRamRecordAge);
  if (HasRecordFileInPath(directory.c_str()) != 0) return false;
  const record::PathResult ram(GetTmpFsPath(&m_config, m_param.recordtype, kNeedMB));
  if (ram == nullptr) return false;
  SetStorageBase(ram.get());
  m_networkBase[0] = '\0';
  return true;
}

bool CRecordTask::ChooseStorage() {
  if (ChooseMedium()) return true;
  return ChooseRamStorage(record::flag::kPreRecord) || ChooseRamStorage(record::flag::kRecordInRam);
}

int CRecordTask::StartThread(void* (*threadFunction)(void*)) try {
  if (m_running != 0) {
    RECORD_LOG_TEXT("task is running already\n\n");
    return -1;
  }
  const long long total = static_cast<long long>(m_param.duration) + m_param.pre_second;
  if (total < 1) {
    RECORD_LOG_TEXT("duration <= 0\n");
    return -1;
  }
  RECORD_LOG("m_local_store=%d, task bitrate=%d, duration=%d, need space %d M\n\n", m_local_store, m_param.bitrate,
             static_cast<int>(std::min<long long>(total, m_param.max_file_seconds)), kNeedMB);
  if (!ChooseStorage()) {
    AlarmNoStorage(m_logPrefix);
    RECORD_LOG_TEXT("both local and remote path not found, start record task failed.\n\n");
    return -1;
  }
  m_running = 1;
  // From here on the thread owns the task and may have deleted it at any moment: only the local copy is used.
  pthread_t thread;
  const int error = pthread_create(&thread, nullptr, threadFunction, this);
  if (error != 0) {
    m_running = 0;
    RECORD_LOG("Create RecordTask failed, err=%s\n\n", std::strerror(error));
    return -1;
  }
  RECORD_LOG_MODULE(record::kLogModuleLifecycle, "Create RecordTask ok, m_thread = %x !\n\n",
                    static_cast<unsigned>(thread));
  return 0;
}
RECORD_NO_THROW(-1)
