// recordctl snapshot
#include <cstdio>
#include <filesystem>
#include <memory>
#include <mutex>
#include <vector>

#include "base/clock.h"
#include "record/photo_task.h"
#include "record/storage.h"
#include "record/task_manager.h"
#include "tools/recordctl/media_kinds.h"
#include "tools/recordctl/options.h"
#include "tools/recordctl/output.h"
#include "tools/recordctl/progress.h"
#include "tools/recordctl/root.h"
#include "tools/recordctl/signals.h"
#include "tools/recordctl/sources.h"
#include "tools/recordctl/upload_targets.h"

namespace recordctl {
namespace {

constexpr int kMostPictures = 1000000;
constexpr int kLongestPause = 86400;
constexpr int kLargestSide = 8192;

constexpr char kSnapshotFooter[] =
    "Examples:\n"
    "  recordctl snapshot --input rtsp://camera/main\n"
    "  recordctl snapshot --input rtsp://camera/main --count 60 --every 10 --size 640x360 --kind schedule\n"
    "\n"
    "Every picture is told on stdout. Exit code 1 when any of them could not be taken, or was\n"
    "refused as an upload.";

struct SnapshotRequest {
  std::string input;
  bool loop = false;
  std::string kindName = "manual";
  std::string size;
  PHOTO_TASK_PARAM photo = {RECORD_KIND_MANUAL, STREAM_MAIN, 1, 1, 0, 0, 0, 1, 0};
  UploadRequest uploads;
};

// What the task's thread tells, in order.
class Pictures {
 public:
  struct Picture {
    int number;
    std::string path;   // "" when it failed
    std::string error;  // "" when it did not
  };
  void Add(Picture picture) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_pictures.push_back(std::move(picture));
  }
  std::vector<Picture> Take() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    std::vector<Picture> taken;
    taken.swap(m_pictures);
    return taken;
  }

 private:
  std::mutex m_mutex;
  std::vector<Picture> m_pictures;
};

class WatchedPhotos : public CPhotoTask {
 public:
  WatchedPhotos(const PHOTO_TASK_PARAM& param, const RecordConfig& config, std::shared_ptr<Pictures> pictures)
      : CPhotoTask(param, config), m_pictures(std::move(pictures)) {}

 private:
  void PictureStored(int number, const char* path) override { m_pictures->Add({number, path, ""}); }
  void PictureFailed(int number, const char* reason) override { m_pictures->Add({number, "", reason}); }

  std::shared_ptr<Pictures> m_pictures;
};

class SnapshotSession {
 public:
  SnapshotSession(const Options& options, const SnapshotRequest& request)
      : m_options(options), m_request(request), m_progress(ChosenProgress(options)) {}

  int Run() {
    if (!m_uploads.Understand(m_request.uploads)) return kUsage;
    if (!MakeRoot(m_options)) return kFailed;
    if (!m_sources.Open(m_options, STREAM_MAIN, m_request.input, m_request.loop, true)) return kFailed;
    const DeferSignals deferred;
    TaskManagerInit();
    m_uploads.Start();
    if (!StartTask())
      return Fail("cannot store pictures in root " + m_options.root + ": more than 500 MB have to be free");
    Follow();
    m_uploads.AwaitAttempts(m_progress);
    if (WasInterrupted()) return kInterrupted;
    return m_failed == 0 && m_told == m_request.photo.count && !m_uploads.HasRefused() ? kOk : kFailed;
  }

 private:
  bool StartTask() {
    RecordConfig config = {};
    config.local_enable = 1;
    auto task = std::make_unique<WatchedPhotos>(m_request.photo, config, m_pictures);
    m_uploads.AttachTo(*task);
    if (TaskManagerAddTask(task.get()) < 0) return false;
    if (task->Start() != 0) {
      TaskManagerRemoveTask(task.get());
      return false;
    }
    static_cast<void>(task.release());  // its thread's from here on
    return true;
  }

  void Follow() {
    bool stopped = false;
    while (m_pictures.use_count() > 1) {
      Print();
      if (!stopped && (WasInterrupted() || IsSourceOver())) {
        stopped = true;
        TaskManagerStopTaskOnStorage(DevicePath("/mnt").c_str());
      }
      m_uploads.Tell();
      if (m_progress.IsDue())
        m_progress.Show(std::to_string(m_told) + " of " + std::to_string(m_request.photo.count) + " pictures",
                        {{"phase", "snapshot"}, {"pictures", std::to_string(m_told)}});
      record::SleepMs(kPollMs);
    }
    Print();
    if (m_sourceEnded && m_told < m_request.photo.count)
      Say("the source has ended after " + std::to_string(m_told) + " of " + std::to_string(m_request.photo.count) +
          " pictures");
  }

  // The first picture of a file may be to come when its end is seen; later ones would show the same.
  bool IsSourceOver() {
    if (m_told == m_request.photo.count) return false;
    const Sources::Health health = m_sources.Check(STREAM_MAIN);
    m_sourceEnded = health == Sources::Health::kEnded && m_told > 0;
    return m_sourceEnded || health == Sources::Health::kFailed;
  }

  void Print() {
    for (const Pictures::Picture& picture : m_pictures->Take()) {
      ++m_told;
      if (!picture.error.empty()) {
        ++m_failed;
        Say("picture " + std::to_string(picture.number) + " failed: " + picture.error);
        continue;
      }
      std::error_code error;
      const auto bytes = static_cast<unsigned long long>(std::filesystem::file_size(picture.path, error));
      const std::string path = ShownFile(m_options, picture.path);
      if (m_options.json)
        WriteJson({{"path", path}, {"number", picture.number}, {"bytes", bytes}});
      else
        WriteText("%s  %s bytes\n", Printable(path).c_str(), Grouped(bytes).c_str());
      FlushOutput();
    }
  }

  const Options& m_options;
  const SnapshotRequest& m_request;
  Progress m_progress;
  Sources m_sources;
  UploadTargets m_uploads;
  std::shared_ptr<Pictures> m_pictures = std::make_shared<Pictures>();
  int m_told = 0;
  int m_failed = 0;
  bool m_sourceEnded = false;
};

bool ParseSize(const std::string& text, PHOTO_TASK_PARAM& photo) {
  char behind = 0;
  return std::sscanf(text.c_str(), "%5dx%5d%c", &photo.width, &photo.height, &behind) == 2 && photo.width > 0 &&
         photo.height > 0 && photo.width <= kLargestSide && photo.height <= kLargestSide;
}

int Snapshot(const Options& options, SnapshotRequest& request) {
  const Kind* kind = FindKind(request.kindName);
  if (kind == nullptr) {
    Say("there is no kind '" + request.kindName + "' (schedule, manual, motion, alarm)");
    return kUsage;
  }
  if (!request.size.empty() && !ParseSize(request.size, request.photo)) {
    Say("'" + request.size + "' is no size of a picture (640x360, up to 8192x8192)");
    return kUsage;
  }
  request.photo.phototype = kind->code;
  return SnapshotSession(options, request).Run();
}

}  // namespace

void AddSnapshotCommand(CLI::App& app, const Options& options, Action& action) {
  const auto request = std::make_shared<SnapshotRequest>();
  CLI::App* command = app.add_subcommand("snapshot", "Take JPEG pictures of a camera or a file");
  command->footer(kSnapshotFooter);
  command->add_option("--input", request->input, "A URL (rtsp://...) or a file")->required();
  command->add_flag("--loop", request->loop, "Play a file over and over");
  command->add_option("--count", request->photo.count, "How many pictures")
      ->default_str("1")
      ->check(CLI::Range(1, kMostPictures));
  command->add_option("--every", request->photo.interval, "Seconds from one to the next")
      ->default_str("1")
      ->check(CLI::Range(0, kLongestPause));
  command->add_option("--size", request->size, "WxH in pixels (default: as the stream has them)");
  command->add_option("--quality", request->photo.quality, "1 (smallest) to 100 (best)")
      ->default_str("85")
      ->check(CLI::Range(1, 100));
  command->add_option("--kind", request->kindName, "schedule, manual, motion or alarm")->default_str("manual");
  AddUploadOptions(*command, request->uploads);
  command->callback(
      [&options, &action, request] { action = [&options, request] { return Snapshot(options, *request); }; });
}

}  // namespace recordctl
