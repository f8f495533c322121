// Times of sound frames whose container keeps none: each bears the stamp of the picture before it. They are laid
// end to end by their own lengths, held between that picture and the next one.
#ifndef EXPORT_SOUND_PACE_H
#define EXPORT_SOUND_PACE_H

#include "format/media_file.h"
#include "record/types.h"

namespace record {

// Length of a sound frame in microseconds; 0 when its kind does not tell.
long long SoundFrameUs(const AUDIO_PARAM& audio, const MediaFrame& frame);

class SoundPace {
 public:
  void Begin() { m_hasBegun = false; }
  // `pictureMs` is the time of the picture before it, `intervalMs` that between pictures.
  long long Place(long long pictureMs, long long intervalMs, long long lengthUs);

 private:
  bool m_hasBegun = false;
  long long m_nextUs = 0;
};

}  // namespace record

#endif
