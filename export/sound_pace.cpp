#include "export/sound_pace.h"

#include <algorithm>

#include "export/clip_writer.h"
#include "format/mp4/mp4_codes.h"

namespace record {

long long SoundFrameUs(const AUDIO_PARAM& audio, const MediaFrame& frame) {
  constexpr long long kAacSamples = 1024;
  if (audio.samplerate == 0) return 0;
  const int codec = TrackAudioCodec(audio);
  if (codec == 0) return 0;
  const long long channels = std::max(audio.channels, 1u);
  const long long samples = codec == kMp4Aac ? kAacSamples : frame.length / channels;
  return samples * 1000000 / audio.samplerate;
}

// A frame never lies before its picture, so that after some of them the one that follows its picture closely has
// put all into their true places. Without a picture's worth of reserve the next picture would be outrun.
long long SoundPace::Place(long long pictureMs, long long intervalMs, long long lengthUs) {
  const long long first = pictureMs * 1000;
  const long long last = first + intervalMs * 1000 + lengthUs;
  if (!m_hasBegun || m_nextUs > last) m_nextUs = first;
  m_hasBegun = true;
  const long long at = std::max(m_nextUs, first);
  m_nextUs = at + lengthUs;
  return at / 1000;
}

}  // namespace record
