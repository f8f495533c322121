// The first test of a port: records the main stream for three seconds, reads the file back and says what is in
// it. Link it with the platform that shall be tried.
//
//   smoke DIRECTORY    a device tree below that directory, its first card included
//   smoke              the device's own paths; a medium has to be mounted
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>

#include "record/record.h"

namespace {

constexpr int kSeconds = 3;
constexpr int kKeyEverySeconds = 4;  // groups of pictures may be that long

void Rest(int milliseconds) {
  usleep(static_cast<useconds_t>(milliseconds) * 1000);
}

bool UseRoot(const char* root) {
  if (SetDeviceRoot(root) != 0) return false;
  std::error_code error;
  for (const char* directory : {"/mnt/mmc0", "/tmp", "/opt/zq"}) {
    std::filesystem::create_directories(DevicePath(directory), error);
    if (error) return false;
  }
  return true;
}

// The path of the file that was recorded; "" when there is none.
std::string Record() {
  RecordConfig config = {};
  config.local_enable = 1;
  RECORD_TASK_PARAM param = {};
  param.recordtype = RECORD_KIND_MANUAL;
  param.rectype_code = 'M';
  param.stream = STREAM_MAIN;
  param.video_enable = 1;
  param.video_type = VIDEO_CODEC_H264;
  param.audio_type = AUDIO_CODEC_NONE;
  param.framerate = 25;
  param.duration = param.max_file_seconds = 60;  // stopped long before
  param.local_store = 1;
  param.keep_frame_tail = 1;
  auto task = std::make_unique<CKmvTask>(param, config);
  TaskManagerInit();
  if (TaskManagerAddTask(task.get()) < 0) return "";
  if (task->Start() != 0) {
    TaskManagerRemoveTask(task.get());
    return "";
  }
  CKmvTask* const running = task.release();  // the record thread's from here on
  for (int waited = 0; waited < kSeconds * 10 && TaskManagerGetTaskCount(RECORD_KIND_MANUAL, -1) > 0; ++waited)
    Rest(100);
  if (TaskManagerGetTaskCount(RECORD_KIND_MANUAL, -1) == 0) return "";  // it ended by itself: no stream
  std::string path = running->SharedLocalPath();                        // safe: it runs until it is stopped
  if (TaskManagerStopTaskOnStorage(running->SharedStorageBase().c_str()) != 0) return "";
  return path;
}

bool ReadBack(const std::string& path) {
  const std::unique_ptr<CVideoFile> file = CreateVideoFile(path.c_str());
  if (file == nullptr || file->Open(path.c_str()) < 1) return false;
  int frames = 0;
  int keys = 0;
  long long bytes = 0;
  unsigned char* data = nullptr;
  long owned = 0;
  long video = 0;
  long key = 0;
  unsigned long stamp = 0;
  for (int length; (length = file->GetMediaFrame(&data, owned, video, key, stamp)) > 0;) {
    ++frames;
    keys += key != 0 ? 1 : 0;
    bytes += length;
    if (owned != 0) delete[] data;
  }
  std::printf("%s: %d frames, %d of them key frames, %lld bytes, %d s\n", path.c_str(), frames, keys, bytes,
              file->GetTimeDuration());
  return frames >= kSeconds && keys >= 1 + kSeconds / kKeyEverySeconds;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc > 1 && !UseRoot(argv[1])) {
    std::fprintf(stderr, "cannot make a device tree in %s\n", argv[1]);
    return 1;
  }
  const std::string path = Record();
  if (path.empty()) {
    std::fprintf(stderr, "nothing was recorded; the library's log lines (DebugPrint) tell why\n");
    return 1;
  }
  if (!ReadBack(path)) {
    std::fprintf(stderr, "%s is not what a recording of %d s should be\n", path.c_str(), kSeconds);
    return 1;
  }
  return 0;
}
