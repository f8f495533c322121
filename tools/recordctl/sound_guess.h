// What an AVI record file keeps to itself: whether its sound is G.711 by the one law or the other, or PCM.
#ifndef RECORDCTL_SOUND_GUESS_H
#define RECORDCTL_SOUND_GUESS_H

#include "tools/recordctl/record_file.h"

namespace recordctl {

// The AudioCodec that makes most sense of the first seconds of sound.
int GuessSound(const RecordFile& file);

}  // namespace recordctl

#endif
