#include "tools/recordctl/watched_task.h"

#include <sys/stat.h>

#include <utility>

#include "tools/recordctl/contents.h"

namespace recordctl {
namespace {

// Stands in front of the task's other bases: the watch is let go of when nothing of the task is left.
struct WatchHolder {
  std::shared_ptr<TaskWatch> watch;
};

template <typename Writer>
class WatchedTask : private WatchHolder, public Writer {
 public:
  WatchedTask(const RECORD_TASK_PARAM& param, const RecordConfig& config, std::shared_ptr<TaskWatch> watched)
      : WatchHolder{std::move(watched)}, Writer(param, config) {}

  int RecordBegin() override {
    const int result = Writer::RecordBegin();
    if (result >= 0) watch->Begun(this->GetFilePath());
    return result;
  }

  // The library uploads what a running task has finished, and nothing of one that is being stopped. Here a stop is
  // the end of the recording, and its last file goes where the others went.
  int RecordEnd() override {
    this->m_running = 1;
    const int result = Writer::RecordEnd();
    watch->Ended(IsCutShort(), this->GetRecordInfo());
    return result;
  }

  int RecordOneVideoFrame(int keyFrame, char* data, int length, unsigned int timestampMs) override {
    const int result = Writer::RecordOneVideoFrame(keyFrame, data, length, timestampMs);
    watch->Video(length, timestampMs);
    return result;
  }

  int RecordOneAudioFrame(char* data, int length, unsigned int timestampMs) override {
    const int result = Writer::RecordOneAudioFrame(data, length, timestampMs);
    watch->Audio(length, timestampMs);
    return result;
  }

 protected:
  // Whether the file that was ended lacks something.
  virtual bool IsCutShort() { return this->IsWriteFailed() != 0; }
};

// The library counts what the multiplexer refuses: a medium that takes no more is seen by a file that stands still
// from one key frame to the next, and by an end that is missing.
class WatchedMp4Task : public WatchedTask<CMp4Task> {
 public:
  using WatchedTask::WatchedTask;

  int RecordBegin() override {
    m_size = -1;
    return WatchedTask::RecordBegin();
  }

  int RecordOneVideoFrame(int keyFrame, char* data, int length, unsigned int timestampMs) override {
    const int result = WatchedTask::RecordOneVideoFrame(keyFrame, data, length, timestampMs);
    if (keyFrame == 0) return result;
    struct stat status = {};
    const bool there = stat(GetFilePath(), &status) == 0;
    if (!there || status.st_size <= m_size) m_writeFailed = 1;
    m_size = static_cast<long long>(status.st_size);
    return result;
  }

 protected:
  bool IsCutShort() override { return WatchedTask::IsCutShort() || !HasEnd({GetFilePath(), Container::kMp4}); }

 private:
  long long m_size = -1;  // at the last key frame
};

}  // namespace

TaskWatch::File TaskWatch::GetFile() const {
  const std::lock_guard<std::mutex> lock(m_mutex);
  return m_file;
}

void TaskWatch::Begun(const std::string& path) {
  const std::lock_guard<std::mutex> lock(m_mutex);
  m_file.path = path;
}

void TaskWatch::Ended(bool writeFailed, const RecordInfoStruct& info) {
  const std::lock_guard<std::mutex> lock(m_mutex);
  m_file.ended = true;
  m_file.writeFailed = writeFailed;
  m_file.info = info;
}

void TaskWatch::Video(int length, std::uint32_t stamp) {
  if (videoFrames == 0) firstVideoStamp = stamp;
  lastVideoStamp = stamp;
  bytes += length;
  ++videoFrames;
}

void TaskWatch::Audio(int length, std::uint32_t stamp) {
  lastAudioStamp = stamp;
  bytes += length;
  ++audioFrames;
}

std::unique_ptr<CRecordTask> NewWatchedTask(Container container, const RECORD_TASK_PARAM& param,
                                            const RecordConfig& config, std::shared_ptr<TaskWatch> watch) {
  switch (container) {
    case Container::kAvi:
      return std::make_unique<WatchedTask<CAviTask>>(param, config, std::move(watch));
    case Container::kMp4:
      return std::make_unique<WatchedMp4Task>(param, config, std::move(watch));
    default:
      return std::make_unique<WatchedTask<CKmvTask>>(param, config, std::move(watch));
  }
}

}  // namespace recordctl
