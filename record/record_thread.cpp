// The record thread: its life around one run.
#include "record/record_thread.h"

#include <exception>

#include "base/log.h"
#include "record/platform.h"
#include "record/record_run.h"
#include "record/task.h"
#include "record/task_thread.h"

void* RecordThread(void* argument) {
  auto* task = static_cast<CRecordTask*>(argument);
  if (!record::DetachTaskThread("RecordThread")) return nullptr;
  bool encoderAlive = true;
  try {
    encoderAlive = record::RecordRun(*task).Record();
  } catch (const std::exception& error) {  // no memory: this recording ends, the device goes on
    RECORD_LOG("record thread failed, err=%s\n\n", error.what());
  }
  record::EndTask(task);
  if (!encoderAlive) MsgSystemReboot();
  return nullptr;
}
