#include "tests/trust/recorder.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <filesystem>
#include <random>
#include <thread>

#include "record/storage.h"
#include "record/task_manager.h"
#include "tests/support/task_param.h"
#include "tests/support/thread_count.h"
#include "tests/trust/journaled_task.h"
#include "tests/trust/sync_watch.h"

namespace trust {
namespace {

constexpr int kMaxChannels = 10;  // as many as the registry has slots

RECORD_TASK_PARAM TaskParam(const Channel& channel) {
  RECORD_TASK_PARAM param = fake::CameraParam(AUDIO_CODEC_G711_ULAW);
  param.recordtype = channel.kind;
  param.stream = channel.stream;
  param.duration = param.max_file_seconds = channel.durationSeconds;
  return param;
}

void StartTask(const std::string& extension, const Channel& channel, Journal& journal, std::atomic<bool>& alive) {
  RecordConfig config = {};
  config.local_enable = 1;
  std::unique_ptr<CRecordTask> task = NewJournaledTask(extension, TaskParam(channel), config, journal, alive);
  TaskManagerAddTask(task.get());
  if (task->Start() == 0)
    static_cast<void>(task.release());  // its thread deletes it
  else
    TaskManagerRemoveTask(task.get());
}

[[noreturn]] void Run(const RecorderPlan& plan, Journal& journal) {
  std::array<std::atomic<bool>, kMaxChannels> alive = {};
  std::mt19937 random(plan.seed);
  if (plan.quiet) dup2(open("/dev/null", O_WRONLY | O_CLOEXEC), STDERR_FILENO);
  WatchSyncs(&journal);
  StallSyncs(plan.syncStallMs);
  SetDeviceRoot(plan.root.c_str());
  SetRecordSyncInterval(plan.syncIntervalMs);
  TaskManagerInit();
  StartFeeding(plan.feed);
  std::int64_t stopNs = 0;
  while (true) {
    for (size_t n = 0; n < plan.channels.size(); ++n) {
      if (!alive[n]) StartTask(plan.extension, plan.channels[n], journal, alive[n]);
    }
    if (plan.stopEveryMs > 0 && NowNs() >= stopNs) {
      if (stopNs != 0) TaskManagerRelease();
      stopNs = NowNs() + (plan.stopEveryMs / 2 + static_cast<int>(random() % plan.stopEveryMs)) * 1000000LL;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
}

// The thread checker does not follow a child of several threads: the one that looks at a share for a lookup may
// not have ended yet.
pid_t ForkAlone() {
  constexpr std::int64_t kPatienceNs = 2000000000;
  static const std::ptrdiff_t s_alone = [] {
    std::thread([] {}).join();  // the checker starts one of its own beside the first
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    return fake::ThreadCount();
  }();
  const std::int64_t until = NowNs() + kPatienceNs;
  while (fake::ThreadCount() > s_alone && NowNs() < until)
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  return fork();
}

}  // namespace

Recorder::Recorder(const RecorderPlan& plan, Journal& journal) : m_child(ForkAlone()) {
  if (m_child != 0) return;
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  Run(plan, journal);
}

void Recorder::Kill() {
  if (m_child <= 0) return;
  kill(m_child, SIGKILL);
  int status = 0;
  waitpid(m_child, &status, 0);
  m_diedOfTheKill = WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL;
  m_child = -1;
}

bool MakeDevice(const std::string& root) {
  std::error_code error;
  std::filesystem::create_directories(root + "/mnt/mmc0", error);
  if (!error) std::filesystem::create_directories(root + "/tmp", error);
  return !error;
}

}  // namespace trust
