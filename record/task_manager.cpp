#include "record/task_manager.h"

#include <array>
#include <atomic>
#include <cstring>
#include <mutex>
#include <string>

#include "base/clock.h"
#include "base/log.h"
#include "base/no_throw.h"
#include "base/published_paths.h"
#include "record/query_pin.h"
#include "record/task.h"
#include "record/task_slots.h"
#include "storage/layout.h"

namespace {

constexpr int kMaxTasks = 10;
constexpr int kMaxFileInUse = 255;

// Slots change under the mutex; queries read each once and use the task only while they hold a QueryPin.
std::array<std::atomic<CTaskbase*>, kMaxTasks> g_task_list;
std::mutex g_task_mutex;
record::PublishedText g_fileInUse;
std::mutex g_fileInUseMutex;  // one writer at a time; readers take no lock
std::atomic<int> g_bWriteFail{0};

unsigned ForLog(const CTaskbase* task) {
  return static_cast<unsigned>(reinterpret_cast<std::uintptr_t>(task));
}

// Calls `use` with each registered task in slot order until it returns true; tells whether it did.
template <typename Use>
bool AnyTask(const Use& use) {
  const record::QueryPin pin;
  for (auto& slot : g_task_list) {
    CTaskbase* const task = slot.load();
    if (task != nullptr && use(*task)) return true;
  }
  return false;
}

bool Matches(const CTaskbase& task, int recordType, int stream) {
  return task.GetRecordType() == recordType && (stream == -1 || task.GetStreamSelector() == stream);
}

bool IsEmpty(const char* text) {
  return text == nullptr || text[0] == '\0';
}

bool NoTaskLeft() {
  return !AnyTask([](CTaskbase&) { return true; });
}

}  // namespace

int TaskManagerInit() try {
  const std::lock_guard<std::mutex> lock(g_task_mutex);
  for (auto& slot : g_task_list) slot = nullptr;
  TaskManagerSetFileUsing("");
  return 1;
}
RECORD_NO_THROW(1)

int TaskManagerRelease() {
  RECORD_LOG_MODULE_TEXT(record::kLogModuleLifecycle, "call TaskManagerRelease.\n\n");
  const record::QueryPin pin;
  for (int i = 0; i < kMaxTasks; ++i) {
    CTaskbase* task = g_task_list[static_cast<size_t>(i)].load();
    if (task == nullptr) continue;
    RECORD_LOG("Stop task %d: pTask=%x\n\n", i, ForLog(task));
    task->Stop();
    // Only if it is still that task's: it may have left, and another one may have come, meanwhile.
    g_task_list[static_cast<size_t>(i)].compare_exchange_strong(task, nullptr);
  }
  return 1;
}

int TaskManagerAddTask(CTaskbase* task) {
  const std::lock_guard<std::mutex> lock(g_task_mutex);
  for (int i = 0; i < kMaxTasks; ++i) {
    if (g_task_list[static_cast<size_t>(i)] != nullptr) continue;
    RECORD_LOG("found one position: %d for pTask %x\n\n", i, ForLog(task));
    g_task_list[static_cast<size_t>(i)] = task;
    return i;
  }
  RECORD_LOG_TEXT("too many task!\n\n");
  return -1;
}

int TaskManagerRemoveTask(CTaskbase* task) {
  int found = -1;
  {
    const std::lock_guard<std::mutex> lock(g_task_mutex);
    for (int i = 0; i < kMaxTasks && found < 0; ++i) {
      if (g_task_list[static_cast<size_t>(i)] == task) found = i;
    }
    if (found >= 0) {
      RECORD_LOG("remove one position: %d for pTask %x\n\n", found, ForLog(task));
      g_task_list[static_cast<size_t>(found)] = nullptr;
    } else {
      RECORD_LOG("pTask = %x not found!\n\n", ForLog(task));
    }
  }
  // Also when it was not found: TaskManagerRelease may have just taken it out of its slot.
  record::QueryPin::WaitForQueries();
  return found;
}

void record::EmptySlotsOf(const CTaskbase* task) {
  bool found = false;
  for (auto& slot : g_task_list) {
    const std::lock_guard<std::mutex> lock(g_task_mutex);
    if (slot.load() != task) continue;
    slot = nullptr;
    found = true;
  }
  if (found) QueryPin::WaitForQueries();
}

int TaskManagerGetTaskCount(int recordType, int stream) {
  const std::lock_guard<std::mutex> lock(g_task_mutex);
  int count = 0;
  AnyTask([&](CTaskbase& task) {
    count += Matches(task, recordType, stream) ? 1 : 0;
    return false;
  });
  return count;
}

CTaskbase* TaskManagerGetFirst(int recordType, int stream) {
  const std::lock_guard<std::mutex> lock(g_task_mutex);
  CTaskbase* first = nullptr;
  AnyTask([&](CTaskbase& task) {
    if (Matches(task, recordType, stream)) first = &task;
    return first != nullptr;
  });
  return first;
}

int TaskManagerStopTaskOnStorage(const char* prefix) try {
  constexpr int kPasses = 9;
  constexpr int kPassMs = 400;
  if (IsEmpty(prefix)) return -1;
  AnyTask([&](CTaskbase& task) {
    if (task.SharedStorageBase().compare(0, std::strlen(prefix), prefix) == 0) task.Stop();
    return false;
  });
  // Waits for every task to leave the registry, not only for those that were stopped.
  for (int pass = 0; pass < kPasses; ++pass) {
    RECORD_LOG_TEXT("Wait all record task finshed..\n\n");
    if (NoTaskLeft()) return 0;
    record::SleepMs(kPassMs);
  }
  return -1;
}
RECORD_NO_THROW(-1)

int TaskManagerDirUsing(const char* directory) try {
  if (IsEmpty(directory)) return -1;
  return AnyTask([&](CTaskbase& task) { return task.SharedStorageBase() == directory; }) ? 1 : 0;
}
RECORD_NO_THROW(-1)

int TaskManagerFileUsing(const char* path) try {
  if (IsEmpty(path)) return -1;
  return AnyTask([&](CTaskbase& task) { return task.SharedLocalPath() == path; }) ? 1 : 0;
}
RECORD_NO_THROW(-1)

int TaskManagerFullDirUsing(const char* part) try {
  if (IsEmpty(part)) return -1;
  return AnyTask([&](CTaskbase& task) { return task.SharedLocalPath().find(part) != std::string::npos; }) ? 1 : 0;
}
RECORD_NO_THROW(-1)

int TaskManagerSetFileUsing(const char* path) try {
  const std::lock_guard<std::mutex> lock(g_fileInUseMutex);
  const std::string text(path != nullptr ? path : "");
  g_fileInUse.Set(text.substr(0, kMaxFileInUse).c_str());
  return 0;
}
RECORD_NO_THROW(-1)

int TaskManagerIsFileUsing(const char* path) try {
  if (path == nullptr) return 0;
  return g_fileInUse.Get() == std::string(path, strnlen(path, kMaxFileInUse)) ? 1 : 0;
}
RECORD_NO_THROW(0)

int TaskIsBlockingTime(unsigned int milliseconds, unsigned int* line, unsigned int* time) {
  constexpr unsigned kShortest = 1000;
  constexpr unsigned kDefault = 10000;
  const unsigned threshold = milliseconds < kShortest ? kDefault : milliseconds;
  const std::lock_guard<std::mutex> lock(g_task_mutex);
  const bool blocking = AnyTask([&](CTaskbase& task) {
    if (task.GetMutex().IsLockedExeedtime(threshold) == 0) return false;
    *line = task.GetMutex().GetLockedLine();
    *time = task.GetMutex().GetLockedTime();
    return true;
  });
  return blocking ? 1 : 0;
}

void TaskSetWriteFail(int failed) {
  g_bWriteFail = failed;
}

int TaskGetWriteFail() {
  return g_bWriteFail;
}
