// Makes of a container's packets the frames that record files hold.
#ifndef PLATFORM_HOST_PACKET_SHAPER_H
#define PLATFORM_HOST_PACKET_SHAPER_H

#include <memory>
#include <optional>
#include <string>

#include "platform/host/adts.h"
#include "platform/host/annexb.h"
#include "platform/host/av_handles.h"
#include "record/types.h"

namespace record {

// A frame's bytes and what keeps them. Not copied unless something had to be put in.
struct ShapedFrame {
  const unsigned char* data = nullptr;
  int length = 0;
  std::shared_ptr<const void> owner;
};

// Video: length-prefixed units become Annex B, key frames carry their parameter sets (MPEG-4: VOL header). Start
// codes are four bytes long, so that a frame is the same bytes out of every container it is recorded into.
class VideoShaper {
 public:
  // Null, with the reason in `error`, when the container's configuration is broken.
  static std::unique_ptr<VideoShaper> Create(const AVStream* stream, std::string* error);

  // Takes what `packet` holds. False when it is broken or cannot be decoded for want of parameter sets.
  bool Shape(AVPacket* packet, ShapedFrame* frame);

  VideoCodec Codec() const { return m_codec; }
  // The sets as last seen; empty while none is known.
  const Bytes& Config() const { return m_config; }

 private:
  explicit VideoShaper(VideoCodec codec) : m_codec(codec) {}
  bool CreateFilter(const AVStream* stream);
  bool Filter(AVPacket* packet);
  bool ShapeKeyFrame(AVPacket* packet, ShapedFrame* frame);

  const VideoCodec m_codec;
  AvFilter m_filter;
  Bytes m_config;
};

// Audio: raw AAC gets an ADTS head, everything else is passed on.
class AudioShaper {
 public:
  // Null, with the reason in `error`, when the sound cannot be recorded.
  static std::unique_ptr<AudioShaper> Create(const AVStream* stream, std::string* error);

  bool Shape(AVPacket* packet, ShapedFrame* frame) const;

  AudioCodec Codec() const { return m_codec; }
  const Bytes& Config() const { return m_config; }  // AudioSpecificConfig; empty for all but AAC
  // Samples per channel of a frame of `bytes` bytes.
  int SamplesOf(int bytes) const;

 private:
  AudioShaper(AudioCodec codec, const AVCodecParameters* parameters);

  const AudioCodec m_codec;
  const int m_bytesPerSample;  // of all channels; 0 for AAC
  Bytes m_config;
  std::optional<AacConfig> m_aac;
};

}  // namespace record

#endif
