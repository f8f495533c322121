#include "format/avi/avi_params.h"

#include <algorithm>
#include <cstdio>

#include "base/log.h"

namespace record {
namespace {

constexpr std::uint32_t kVolLength = 18;
constexpr std::size_t kLastUnitStart = 249;
constexpr int kPictureParameterSet = 8;
constexpr std::size_t kBehindSetType = 8;  // start code, type and what a short set has
constexpr std::uint32_t kSmallPicture = 704;
constexpr std::uint32_t kSmallConfigLength = 86;
constexpr std::uint32_t kConfigLength = 114;

// Kept: the end of the last set is reckoned, not found.
std::uint32_t ConfigLength(const VIDEO_PARAM& video) {
  constexpr std::uint8_t kStartCode[] = {0, 0, 0, 1};
  for (std::size_t at = 0; at <= kLastUnitStart; ++at) {
    if (std::memcmp(video.config + at, kStartCode, sizeof kStartCode) != 0) continue;
    if ((video.config[at + sizeof kStartCode] & 31) != kPictureParameterSet) continue;
    const auto length = static_cast<std::uint32_t>(at + kBehindSetType);
    RECORD_LOG("found pps, offset = %d, config_len = %d\n\n", static_cast<int>(at), static_cast<int>(length));
    return length;
  }
  RECORD_LOG_TEXT("pps not found, use default config len.\n\n");
  return video.width < kSmallPicture ? kSmallConfigLength : kConfigLength;
}

}  // namespace

VIDEO_PARAM AviVideoParam(const AviHead& head) {
  VIDEO_PARAM video = {};
  const VideoCodec codec = head.Codec();
  const char* name = codec == VIDEO_CODEC_MPEG4 ? "MP4V" : codec == VIDEO_CODEC_H265 ? "H265" : "H264";
  std::snprintf(video.codec, sizeof video.codec, "%s", name);
  video.width = head.begin.main.width;
  video.height = head.begin.main.height;
  video.framerate = head.video.rate;
  video.bitrate = head.begin.main.bytesASecond * 8;
  return video;
}

AUDIO_PARAM AviAudioParam(const AviHead& head) {
  constexpr std::uint8_t kNotAac[] = {1, 0, 0, 0};
  AUDIO_PARAM audio = {};
  const bool aac = std::memcmp(head.audio.codec, kNotAac, sizeof kNotAac) != 0;
  std::snprintf(audio.codec, sizeof audio.codec, "%s", aac ? "AAC" : "G711");
  audio.samplerate = head.audioFormat.samplerate;
  audio.bits = 16;  // kept: whatever the file says
  audio.channels = head.audioFormat.channels;
  audio.bitrate = audio.samplerate * audio.channels * 128;  // kept
  return audio;
}

void AviReadConfig(const FileSource& source, VideoCodec codec, long long chunkOffset, VIDEO_PARAM& video) {
  const bool mpeg4 = codec == VIDEO_CODEC_MPEG4;
  const std::size_t wanted = mpeg4 ? kVolLength : sizeof video.config;
  RECORD_LOG("seek to first video key frame, offset = %d \n\n", static_cast<int>(chunkOffset));
  const std::size_t got = source.ReadAt(chunkOffset + kAviChunkHeadSize, video.config, wanted);
  if (got < wanted && mpeg4) RECORD_LOG_TEXT("read vol of MP4V failed\n\n");
  if (got < wanted && !mpeg4) RECORD_LOG_TEXT("read sps and pps of H264 failed\n\n");
  video.config_length = std::min(mpeg4 ? kVolLength : ConfigLength(video), static_cast<std::uint32_t>(got));
  std::memset(video.config + video.config_length, 0, sizeof video.config - video.config_length);
}

}  // namespace record
