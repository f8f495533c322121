#include <algorithm>

#include "platform/host/adts.h"
#include "platform/host/codecs.h"
#include "platform/host/packet_shaper.h"
#include "platform/host/shaped_frame.h"

namespace record {
namespace {}  // namespace

AudioShaper::AudioShaper(AudioCodec codec, const AVCodecParameters* parameters)
    : m_codec(codec),
      m_bytesPerSample(codec == AUDIO_CODEC_AAC
                           ? 0
                           : std::max(1, parameters->ch_layout.nb_channels) * (codec == AUDIO_CODEC_PCM ? 2 : 1)) {
  if (codec == AUDIO_CODEC_AAC && parameters->extradata_size > 0) {
    m_config.assign(parameters->extradata, parameters->extradata + parameters->extradata_size);
  }
}

std::unique_ptr<AudioShaper> AudioShaper::Create(const AVStream* stream, std::string* error) {
  const std::optional<AudioCodec> codec = RecordableAudio(stream->codecpar, error);
  if (!codec) return nullptr;
  std::unique_ptr<AudioShaper> shaper(new AudioShaper(*codec, stream->codecpar));
  shaper->m_aac = ParseAudioConfig(shaper->m_config);
  if (!shaper->m_config.empty() && !shaper->m_aac) {
    *error = "the sound is left out: a kind of AAC that has no ADTS form";
    return nullptr;
  }
  return shaper;
}

bool AudioShaper::Shape(AVPacket* packet, ShapedFrame* frame) const {
  if (packet->size <= 0) return false;
  const auto size = static_cast<size_t>(packet->size);
  if (m_codec != AUDIO_CODEC_AAC || (!m_aac && IsAdts(packet->data, size))) return TakeWhole(packet, frame);
  unsigned char head[kAdtsLength];
  if (!m_aac || !MakeAdtsHead(*m_aac, size, head)) return false;
  return TakeWithInsertion(packet, 0, head, sizeof(head), frame);
}

int AudioShaper::SamplesOf(int bytes) const {
  return m_bytesPerSample > 0 ? bytes / m_bytesPerSample : kAacSamples;
}

}  // namespace record
