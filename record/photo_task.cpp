#include "record/photo_task.h"

#include <pthread.h>

#include <cstdio>
#include <cstring>
#include <exception>

#include "base/log.h"
#include "record/log_prefix.h"
#include "record/photo_run.h"
#include "record/task_thread.h"

CPhotoTask::CPhotoTask(const PHOTO_TASK_PARAM& param, const RecordConfig& config)
    : CTaskbase(param.phototype), m_param(param), m_logPrefix{} {
  m_config = config;
  m_streamSelector = param.stream;
  m_local_store = config.local_enable != 0 ? param.local_store : 0;
  m_remote_store = config.network_enable != 0 ? param.remote_store : 0;
  std::snprintf(m_logPrefix, sizeof m_logPrefix, "%s", record::LogPrefix().c_str());
  RECORD_LOG(
      "phototype = %d, stream = %d, count = %d, interval = %d, width = %d, height = %d, quality = %d, local_store "
      "= "
      "%d, remote_store = %d\n\n",
      param.phototype, param.stream, param.count, param.interval, param.width, param.height, param.quality,
      param.local_store, param.remote_store);
}

CPhotoTask::~CPhotoTask() = default;

void CPhotoTask::PictureStored(int, const char*) {}

void CPhotoTask::PictureFailed(int, const char*) {}

int CPhotoTask::Start() {
  if (m_running != 0) {
    RECORD_LOG_TEXT("task is running already\n\n");
    return -1;
  }
  if (m_param.count < 1 || m_param.interval < 0) {
    RECORD_LOG("no series of %d pictures every %d s\n\n", m_param.count, m_param.interval);
    return -1;
  }
  if (!ChooseMedium()) {
    AlarmNoStorage(m_logPrefix);
    RECORD_LOG_TEXT("both local and remote path not found, start photo task failed.\n\n");
    return -1;
  }
  m_running = 1;
  // From here on the thread owns the task and may have deleted it at any moment.
  pthread_t thread;
  const int error = pthread_create(&thread, nullptr, Thread, this);
  if (error == 0) return 0;
  m_running = 0;
  RECORD_LOG("Create PhotoTask failed, err=%s\n\n", std::strerror(error));
  return -1;
}

int CPhotoTask::Stop() {
  m_running = 0;
  return 0;
}

void CPhotoTask::GetTaskParam(PHOTO_TASK_PARAM* param, RecordConfig* config) const {
  if (param == nullptr || config == nullptr) {
    RECORD_LOG_TEXT("param is NULL!\n\n");
    return;
  }
  *param = m_param;
  *config = m_config;
}

void* CPhotoTask::Thread(void* argument) {
  auto* task = static_cast<CPhotoTask*>(argument);
  if (!record::DetachTaskThread("PhotoThread")) return nullptr;
  try {
    record::PhotoRun(*task).Run();
  } catch (const std::exception& error) {  // no memory: this series ends, the device goes on
    RECORD_LOG("photo thread failed, err=%s\n\n", error.what());
  }
  record::EndTask(task);
  return nullptr;
}
