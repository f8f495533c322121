#include "tools/recordctl/containers.h"

#include <algorithm>
#include <filesystem>

#include "tools/recordctl/output.h"

namespace recordctl {
namespace {

constexpr ContainerName kContainers[] = {
    {Container::kKmv, "kmv", "KMV", ".kmv"},
    {Container::kAvi, "avi", "AVI", ".avi"},
    {Container::kMp4, "mp4", "MP4", ".mp4"},
};

template <typename Predicate>
const ContainerName* Find(const Predicate& predicate) {
  const auto* found = std::find_if(std::begin(kContainers), std::end(kContainers), predicate);
  return found != std::end(kContainers) ? found : nullptr;
}

}  // namespace

const ContainerName& NameOf(Container container) {
  return *Find([&](const ContainerName& each) { return each.container == container; });
}

const ContainerName* FindContainer(const std::string& name) {
  return Find([&](const ContainerName& each) { return name == each.name; });
}

const ContainerName* ContainerOfFile(const std::string& path) {
  const std::string extension = std::filesystem::path(path).extension().string();
  return Find([&](const ContainerName& each) { return extension == each.extension; });
}

std::unique_ptr<CVideoFile> NewReader(Container container) {
  // The library chooses by the name; a file may have another one.
  return CreateVideoFile(NameOf(container).extension);
}

bool FitMedia(Container container, RECORD_TASK_PARAM& param) {
  if (container != Container::kMp4) return true;
  if (param.video_type != VIDEO_CODEC_H264 && param.video_type != VIDEO_CODEC_H265) {
    Say("MPEG-4 video does not go into MP4 files (kmv and avi take it)");
    return false;
  }
  if (param.audio_enable > 0 && param.audio_type == AUDIO_CODEC_PCM) {
    Say("PCM sound does not go into MP4 files: recording video only");
    param.audio_enable = 0;
    param.audio_type = AUDIO_CODEC_NONE;
  }
  return true;
}

}  // namespace recordctl
