#include "tools/recordctl/media_params.h"

#include <algorithm>
#include <cstring>

namespace recordctl {
namespace {

struct CodecName {
  const char* name;
  int type;
};
constexpr CodecName kVideo[] = {{"H.264", VIDEO_CODEC_H264},  {"H264", VIDEO_CODEC_H264},
                                {"H.265", VIDEO_CODEC_H265},  {"H265", VIDEO_CODEC_H265},
                                {"MPEG4", VIDEO_CODEC_MPEG4}, {"MP4V", VIDEO_CODEC_MPEG4}};
constexpr CodecName kAudio[] = {{"G.711", AUDIO_CODEC_G711_ULAW},   {"PCMU", AUDIO_CODEC_G711_ULAW},
                                {"G711", AUDIO_CODEC_G711_ULAW},    {"G.711A", AUDIO_CODEC_G711_ALAW},
                                {"PCMA", AUDIO_CODEC_G711_ALAW},    {"AAC", AUDIO_CODEC_AAC},
                                {"MPEG4-GENERIC", AUDIO_CODEC_AAC}, {"PCM", AUDIO_CODEC_PCM}};
constexpr int kSamplesPerAacFrame = 1024;
constexpr int kG711FramesPerSecond = 25;

template <std::size_t count>
int TypeOf(const CodecName (&names)[count], const char* name, int unknown) {
  const auto* found =
      std::find_if(names, names + count, [&](const CodecName& each) { return std::strcmp(each.name, name) == 0; });
  return found != names + count ? found->type : unknown;
}

int BytesPerSample(int type) {
  return type == AUDIO_CODEC_PCM ? 2 : 1;
}

}  // namespace

int VideoTypeOf(const VIDEO_PARAM& video) {
  return TypeOf(kVideo, video.codec, VIDEO_CODEC_H264);
}

int AudioTypeOf(const AUDIO_PARAM& audio) {
  return TypeOf(kAudio, audio.codec, AUDIO_CODEC_NONE);
}

bool IsVague(const AUDIO_PARAM& audio) {
  return std::strcmp(audio.codec, "G711") == 0;
}

const char* AudioTypeName(int type) {
  switch (type) {
    case AUDIO_CODEC_G711_ULAW:
      return "G.711 u-law";
    case AUDIO_CODEC_G711_ALAW:
      return "G.711 A-law";
    case AUDIO_CODEC_AAC:
      return "AAC";
    default:
      return "PCM";
  }
}

double SoundMs(int type, const AUDIO_PARAM& audio, long bytes) {
  const double rate = std::max<std::uint32_t>(audio.samplerate, 1);
  if (type == AUDIO_CODEC_AAC) return kSamplesPerAacFrame * 1000.0 / rate;
  const double channels = std::max<std::uint32_t>(audio.channels, 1);
  return static_cast<double>(bytes) * 1000.0 / (rate * channels * BytesPerSample(type));
}

RECORD_TASK_PARAM MediaParams(const VIDEO_PARAM& video, const AUDIO_PARAM* audio, int audioType) {
  RECORD_TASK_PARAM param = {};
  param.video_enable = 1;
  param.video_type = VideoTypeOf(video);
  param.width = static_cast<int>(video.width);
  param.height = static_cast<int>(video.height);
  param.framerate = static_cast<int>(video.framerate);
  param.bitrate = static_cast<int>(std::min<std::uint32_t>(video.bitrate, 0x7fffffff));
  param.audio_type = AUDIO_CODEC_NONE;
  if (audio == nullptr || audioType < 0) return param;
  param.audio_enable = 1;
  param.audio_type = audioType;
  param.samplerate = static_cast<int>(std::min<std::uint32_t>(audio->samplerate, 0x7fffffff));
  param.bits = static_cast<int>(audio->bits);
  param.channels = static_cast<int>(audio->channels);
  param.audio_param_a =
      audioType == AUDIO_CODEC_AAC ? param.samplerate / kSamplesPerAacFrame : kG711FramesPerSecond;
  param.audio_param_b = static_cast<int>(std::min<std::uint32_t>(audio->bitrate, 0x7fffffff));
  return param;
}

}  // namespace recordctl
