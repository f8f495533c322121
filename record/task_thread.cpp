#include "record/task_thread.h"

#include <pthread.h>
#include <sys/prctl.h>

#include <cstring>

#include "base/log.h"
#include "record/task.h"
#include "record/task_manager.h"
#include "record/task_slots.h"

namespace record {

bool DetachTaskThread(const char* name) {
  prctl(PR_SET_NAME, name);
  RECORD_LOG_TEXT("RECORD_THREAD_DETACH defined, detach myself.\n\n");
  const int error = pthread_detach(pthread_self());
  if (error != 0) RECORD_LOG("pthread_detach failed. err=%d, errstr=%s\n\n", error, std::strerror(error));
  return error == 0;
}

void EndTask(CTaskbase* task) {
  RECORD_LOG_TEXT("before TaskManagerRemoveTask\n\n");
  TaskManagerRemoveTask(task);
  RECORD_LOG_TEXT("after TaskManagerRemoveTask\n\n");
  EmptySlotsOf(task);
  delete task;
}

}  // namespace record
