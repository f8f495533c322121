#include "bench/recording.h"

#include <cstdlib>
#include <filesystem>

#include "tools/recordctl/convert_clock.h"

namespace bench {
namespace {

constexpr struct {
  const char* name;
  const char* extension;
} kTexts[] = {{"KMV", ".kmv"}, {"AVI", ".avi"}, {"MP4", ".mp4"}};

template <typename Task>
class DrivenTask final : public Recording, private Task {
 public:
  explicit DrivenTask(const std::string& directory)
      : Task(RecordingParam(RECORD_KIND_SCHEDULE), RecordConfig{1, 0, {}}) {
    this->m_running = 1;
    this->SetStorageBase(directory.c_str());
    std::vector<unsigned char> sets = ParameterSets();
    this->SetVolData(reinterpret_cast<char*>(sets.data()), static_cast<int>(sets.size()));
  }
  ~DrivenTask() override { this->m_running = 0; }

  void Begin() override {
    if (Task::RecordBegin() < 0) std::exit(1);
  }
  void Write(const Frame& frame) override {
    char* data = reinterpret_cast<char*>(frame.data);
    if (frame.video)
      Task::RecordOneVideoFrame(frame.key ? 1 : 0, data, frame.length, frame.ms);
    else
      Task::RecordOneAudioFrame(data, frame.length, frame.ms);
  }
  void End() override {
    if (Task::RecordEnd() < 0) std::exit(1);
  }
  std::string Path() const override { return this->GetFilePath(); }
};

void WriteAll(Recording& recording, const Clip& clip, recordctl::ConvertClock& clock) {
  for (const Frame& frame : clip.Frames()) {
    clock.SetElapsed(frame.ms);
    recording.Write(frame);
  }
  clock.SetElapsed(clip.Frames().back().ms + kFrameMs);
}

}  // namespace

const char* NameOf(Container container) {
  return kTexts[static_cast<size_t>(container)].name;
}

const char* ExtensionOf(Container container) {
  return kTexts[static_cast<size_t>(container)].extension;
}

RECORD_TASK_PARAM RecordingParam(int kind) {
  RECORD_TASK_PARAM param = {};
  param.recordtype = kind;
  param.video_enable = 1;
  param.audio_enable = 1;
  param.width = 1920;
  param.height = 1080;
  param.bitrate = 4000000;
  param.framerate = kFramesPerSecond;
  param.duration = 3600;
  param.max_file_seconds = 3600;
  param.local_store = 1;
  param.video_type = VIDEO_CODEC_H264;
  param.audio_type = AUDIO_CODEC_G711_ULAW;
  param.samplerate = 8000;
  param.bits = 16;
  param.channels = 1;
  param.audio_param_a = kFramesPerSecond;
  param.audio_param_b = 64000;
  param.keep_frame_tail = 1;
  param.rectype_code = 'T';
  return param;
}

std::unique_ptr<Recording> Recording::Make(Container container, const std::string& directory) {
  switch (container) {
    case Container::kAvi:
      return std::make_unique<DrivenTask<CAviTask>>(directory);
    case Container::kMp4:
      return std::make_unique<DrivenTask<CMp4Task>>(directory);
    case Container::kKmv:
      break;
  }
  return std::make_unique<DrivenTask<CKmvTask>>(directory);
}

void MakeRecordFile(Container container, const std::string& path, const Clip& clip, bool finished) {
  const std::string directory = path + ".making";
  std::filesystem::create_directories(directory);
  recordctl::ConvertClock clock(0);
  const std::unique_ptr<Recording> recording = Recording::Make(container, directory);
  recording->Begin();
  WriteAll(*recording, clip, clock);
  if (!finished) std::filesystem::copy_file(recording->Path(), path);
  recording->End();
  if (finished) std::filesystem::rename(recording->Path(), path);
  std::filesystem::remove_all(directory);
}

std::string RecordAt(Container container, const std::string& dayDirectory, long long startSeconds,
                     const Clip& clip) {
  std::filesystem::create_directories(dayDirectory);
  recordctl::ConvertClock clock(startSeconds * 1000);
  const std::unique_ptr<Recording> recording = Recording::Make(container, dayDirectory);
  recording->Begin();
  WriteAll(*recording, clip, clock);
  recording->End();
  return recording->Path();
}

}  // namespace bench
