#include "tools/recordctl/sound_guess.h"

#include <cstdlib>
#include <vector>

#include "tools/recordctl/frame_reader.h"
#include "tools/recordctl/media_params.h"

namespace recordctl {
namespace {

constexpr std::size_t kEnoughBytes = 160000;  // twenty seconds of telephone sound

int FromUlaw(unsigned char code) {
  constexpr int kBias = 132;
  const int bits = static_cast<unsigned char>(~code);
  const int magnitude = (((bits & 0x0f) << 3) + kBias) << ((bits & 0x70) >> 4);
  return (bits & 0x80) != 0 ? kBias - magnitude : magnitude - kBias;
}

int FromAlaw(unsigned char code) {
  const int bits = code ^ 0x55;
  const int segment = (bits & 0x70) >> 4;
  int magnitude = ((bits & 0x0f) << 4) + 8;
  if (segment > 0) magnitude = (magnitude + 0x100) << (segment - 1);
  return (bits & 0x80) != 0 ? magnitude : -magnitude;
}

// How far the samples leap in all. The wrong law tears sound to pieces.
template <typename Expand>
long long Leaps(const std::vector<unsigned char>& sound, std::uint32_t channels, const Expand& expand) {
  long long sum = 0;
  for (std::size_t n = channels; n < sound.size(); ++n)
    sum += std::abs(expand(sound[n]) - expand(sound[n - channels]));
  // Constant silence does not leap: it is quieter by the right law.
  return sum > 0 || sound.empty() ? sum : std::abs(expand(sound[0]));
}

}  // namespace

int GuessSound(const RecordFile& file) {
  const std::unique_ptr<CVideoFile> opened = NewReader(file.container);
  if (opened == nullptr || opened->Open(file.path.c_str()) < 1) return AUDIO_CODEC_G711_ULAW;
  unsigned long flags = 0;
  VIDEO_PARAM video = {};
  AUDIO_PARAM audio = {};
  opened->GetMeidaParam(&flags, &video, &audio);
  std::vector<unsigned char> sound;
  unsigned long pictureMs = 0;
  FrameReader reader(*opened);
  for (Frame frame; sound.size() < kEnoughBytes && reader.Next(frame);) {
    if (frame.video)
      pictureMs = frame.timestamp;
    else
      sound.insert(sound.end(), frame.data, frame.data + frame.length);
  }
  // Two bytes a sample last half as long as they would at one.
  const double soundMs = SoundMs(AUDIO_CODEC_G711_ULAW, audio, static_cast<long>(sound.size()));
  if (pictureMs > 0 && soundMs > 1.5 * static_cast<double>(pictureMs)) return AUDIO_CODEC_PCM;
  const std::uint32_t channels = audio.channels > 0 && audio.channels < 16 ? audio.channels : 1;
  return Leaps(sound, channels, FromAlaw) < Leaps(sound, channels, FromUlaw) ? AUDIO_CODEC_G711_ALAW
                                                                             : AUDIO_CODEC_G711_ULAW;
}

}  // namespace recordctl
