#include "platform/host/codecs.h"

namespace record {

std::optional<VideoCodec> RecordableVideo(const AVCodecParameters* parameters) {
  switch (parameters->codec_id) {
    case AV_CODEC_ID_H264:
      return VIDEO_CODEC_H264;
    case AV_CODEC_ID_HEVC:
      return VIDEO_CODEC_H265;
    case AV_CODEC_ID_MPEG4:
      return VIDEO_CODEC_MPEG4;
    default:
      return std::nullopt;
  }
}

std::optional<AudioCodec> RecordableAudio(const AVCodecParameters* parameters, std::string* error) {
  switch (parameters->codec_id) {
    case AV_CODEC_ID_PCM_MULAW:
      return AUDIO_CODEC_G711_ULAW;
    case AV_CODEC_ID_PCM_ALAW:
      return AUDIO_CODEC_G711_ALAW;
    case AV_CODEC_ID_PCM_S16LE:
      return AUDIO_CODEC_PCM;
    case AV_CODEC_ID_AAC:
      return AUDIO_CODEC_AAC;
    default:
      *error = std::string(avcodec_get_name(parameters->codec_id)) +
               " sound is left out: G.711, 16-bit little-endian PCM and AAC can be recorded";
      return std::nullopt;
  }
}

}  // namespace record
