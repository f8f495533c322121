// A record task that can be watched from outside: the library deletes it at its end, what is seen here stays.
#ifndef RECORDCTL_WATCHED_TASK_H
#define RECORDCTL_WATCHED_TASK_H

#include <atomic>
#include <memory>
#include <mutex>
#include <string>

#include "record/task.h"
#include "tools/recordctl/containers.h"

namespace recordctl {

// One file: written by the task's thread, read by any.
class TaskWatch {
 public:
  std::atomic<long long> videoFrames{0};
  std::atomic<long long> audioFrames{0};
  std::atomic<long long> bytes{0};
  std::atomic<std::uint32_t> firstVideoStamp{0};  // milliseconds modulo 2^32; valid once there are frames
  std::atomic<std::uint32_t> lastVideoStamp{0};
  std::atomic<std::uint32_t> lastAudioStamp{0};

  struct File {
    std::string path;  // "" when none could be begun
    bool ended = false;
    bool writeFailed = false;
    RecordInfoStruct info = {};
  };
  File GetFile() const;

  // The task's thread tells.
  void Begun(const std::string& path);
  void Ended(bool writeFailed, const RecordInfoStruct& info);
  void Video(int length, std::uint32_t stamp);
  void Audio(int length, std::uint32_t stamp);

 private:
  mutable std::mutex m_mutex;
  File m_file;
};

// A writer of that container which tells the watch, and lets go of it when nothing of the task is left.
std::unique_ptr<CRecordTask> NewWatchedTask(Container container, const RECORD_TASK_PARAM& param,
                                            const RecordConfig& config, std::shared_ptr<TaskWatch> watch);

}  // namespace recordctl

#endif
