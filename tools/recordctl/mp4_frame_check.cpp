#include "tools/recordctl/mp4_frame_check.h"

#include <algorithm>
#include <cstddef>
#include <optional>

#include "format/mp4/mp4_codes.h"
#include "platform/host/mp4_sample_description.h"

namespace recordctl {
namespace {

using record::ClipWriter;
using record::MediaFrame;

// Nearly always the first bytes tell; the end of the unit need not be looked for.
bool HasUnit(const unsigned char* data, std::size_t length) {
  constexpr std::size_t kGlance = 64;
  record::CodedUnit unit;
  return record::FindUnit(data, std::min(length, kGlance), 0, &unit) || record::FindUnit(data, length, 0, &unit);
}

bool Configures(VideoCodec codec, const MediaFrame& frame, const VIDEO_PARAM& video) {
  const record::DecoderSets sets =
      record::FindDecoderSets(codec, frame.data, static_cast<std::size_t>(frame.length));
  if (!sets.complete) return false;
  const record::PictureSize told = {static_cast<int>(video.width), static_cast<int>(video.height)};
  const record::PictureSize size = record::SizeOfPictures(codec, frame.data, frame.length, told);
  return !record::DescribeVideo(codec, sets.bytes, size).empty();
}

bool IsPictureWhole(const MediaFrame& frame, const ClipWriter& clip) {
  const auto codec = static_cast<VideoCodec>(record::TrackVideoCodec(clip.Video()));
  if (codec == VIDEO_CODEC_MPEG4) return true;  // no file is opened for it
  if (!HasUnit(frame.data, static_cast<std::size_t>(frame.length))) return false;
  return clip.VideoFrames() != 0 || Configures(codec, frame, clip.Video());
}

class SoundCheck {
 public:
  // A buffer may hold several frames.
  bool IsWhole(const MediaFrame& frame) {
    const unsigned char* data = frame.data;
    std::optional<record::AacConfig> config = m_config;
    for (auto left = static_cast<std::size_t>(frame.length); left > 0;) {
      const std::optional<record::AdtsFrame> adts = record::ParseAdts(data, left);
      if (!adts) return false;
      if (!config) config = adts->config;
      if (!(*config == adts->config)) return false;
      data += adts->length;
      left -= adts->length;
    }
    m_config = config;
    return true;
  }

 private:
  std::optional<record::AacConfig> m_config;
};

}  // namespace

record::FrameCheck Mp4FrameCheck() {
  return [sound = SoundCheck()](const MediaFrame& frame, const ClipWriter& clip) mutable {
    if (frame.isVideo) return IsPictureWhole(frame, clip);
    return record::TrackAudioCodec(clip.Audio()) != record::kMp4Aac || sound.IsWhole(frame);
  };
}

}  // namespace recordctl
