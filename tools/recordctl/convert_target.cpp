#include "tools/recordctl/convert_target.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <utility>

#include "record/storage.h"
#include "storage/layout.h"
#include "tools/recordctl/contents.h"
#include "tools/recordctl/convert_clock.h"
#include "tools/recordctl/media_params.h"
#include "tools/recordctl/record_state.h"

namespace fs = std::filesystem;

namespace recordctl {
namespace {

std::unique_ptr<CRecordTask> NewTask(Container container, const RECORD_TASK_PARAM& param) {
  RecordConfig config = {};
  config.local_enable = 1;
  switch (container) {
    case Container::kAvi:
      return std::make_unique<CAviTask>(param, config);
    case Container::kMp4:
      return std::make_unique<CMp4Task>(param, config);
    default:
      return std::make_unique<CKmvTask>(param, config);
  }
}

void SyncDirectory(const fs::path& path) {
  const int directory = open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (directory < 0) return;
  fsync(directory);
  close(directory);
}

fs::path ParentOf(const std::string& path) {
  return fs::absolute(path).lexically_normal().parent_path();
}

std::string Counted(long long videoFrames, long long audioFrames) {
  return std::to_string(videoFrames) + " video and " + std::to_string(audioFrames) + " audio frames";
}

}  // namespace

ConvertTarget::ConvertTarget(Container container, std::string path)
    : m_container(container), m_path(std::move(path)) {}

ConvertTarget::~ConvertTarget() {
  m_task.reset();
  std::error_code ignored;
  if (!m_directory.empty()) fs::remove_all(m_directory, ignored);
}

bool ConvertTarget::Fail(const std::string& error) {
  m_error = m_path + ": " + error;
  return false;
}

bool ConvertTarget::Prepare() {
  std::string directory = (ParentOf(m_path) / ".convert-XXXXXX").string();
  if (mkdtemp(directory.data()) == nullptr) return Fail(std::string("cannot be made: ") + std::strerror(errno));
  m_directory = directory;
  std::error_code error;
  for (const char* each : {"/tmp", "/out"}) fs::create_directory(m_directory + each, error);
  if (error) return Fail("cannot be made: " + error.message());
  return SetDeviceRoot(m_directory.c_str()) == 0 || Fail("its path is too long");
}

bool ConvertTarget::Begin(const RECORD_TASK_PARAM& media, const VIDEO_PARAM& video) {
  m_video = video;
  m_task = NewTask(m_container, media);
  m_task->SetStorageBase((m_directory + "/out").c_str());
  // What stands in front of the first frame of an AVI file is settled with that frame.
  if (m_container != Container::kAvi) SetConfig();
  if (m_task->RecordBegin() != 0) return Fail("cannot be begun");
  m_written = m_task->GetFilePath();
  return true;
}

void ConvertTarget::SetConfig() {
  m_configSet = true;
  m_task->SetVolData(reinterpret_cast<char*>(m_video.config), static_cast<int>(m_video.config_length));
}

bool ConvertTarget::BringsConfig(const TimedFrame& frame) const {
  const auto length = static_cast<std::uint32_t>(frame.length);
  if (length >= m_video.config_length && std::memcmp(frame.data, m_video.config, m_video.config_length) == 0)
    return true;
  // Or parameter sets of its own, whatever the configuration repeats of them.
  constexpr unsigned char kStartCode[] = {0, 0, 0, 1};
  if (length <= sizeof kStartCode || std::memcmp(frame.data, kStartCode, sizeof kStartCode) != 0) return false;
  const int unit = frame.data[sizeof kStartCode];
  const int type = VideoTypeOf(m_video);
  if (type == VIDEO_CODEC_H264) return (unit & 0x1f) == 7;
  return type == VIDEO_CODEC_H265 && (unit >> 1 & 0x3f) >= 32 && (unit >> 1 & 0x3f) <= 34;
}

bool ConvertTarget::Write(const TimedFrame& frame) {
  ConvertClock::SetElapsed(frame.elapsedMs);
  char* data = reinterpret_cast<char*>(frame.data);
  const int length = static_cast<int>(frame.length);
  int result = 0;
  if (frame.video) {
    // The writer puts the configuration in front of the first frame: not a second time.
    if (!m_configSet && !BringsConfig(frame)) SetConfig();
    result = m_task->RecordOneVideoFrame(frame.key ? 1 : 0, data, length, frame.stamp);
    if (!m_configSet) SetConfig();
  } else {
    result = m_task->RecordOneAudioFrame(data, length, frame.stamp);
  }
  if (result < 0 || m_task->IsWriteFailed() != 0) return Fail("writing failed");
  return true;
}

bool ConvertTarget::End() {
  m_task->RecordEnd();
  m_info = m_task->GetRecordInfo();
  return m_task->IsWriteFailed() == 0 || Fail("writing failed");
}

bool ConvertTarget::Keep() {
  const record::FrameTotals totals = ReadContents({m_written, m_container}, false).totals;
  if (totals.videoFrames != m_info.videoFrames || totals.audioFrames != m_info.audioFrames)
    return Fail("holds " + Counted(totals.videoFrames, totals.audioFrames) + " of " +
                Counted(m_info.videoFrames, m_info.audioFrames));
  if (std::rename(m_written.c_str(), m_path.c_str()) != 0)
    return Fail(std::string("cannot be put in place: ") + std::strerror(errno));
  // Beside a record file of a day belongs its side file.
  if (NamedStartMs(m_path) >= 0)
    std::rename(record::InfoPath(m_written).c_str(), record::InfoPath(m_path).c_str());
  SyncDirectory(ParentOf(m_path));
  return true;
}

}  // namespace recordctl
