// From what a reader tells of its file to what a writer has to be told.
#ifndef RECORDCTL_MEDIA_PARAMS_H
#define RECORDCTL_MEDIA_PARAMS_H

#include "record/types.h"

namespace recordctl {

int VideoTypeOf(const VIDEO_PARAM& video);  // VideoCodec
// AudioCodec; of an AVI file's G.711, which may as well be PCM, AUDIO_CODEC_G711_ULAW.
int AudioTypeOf(const AUDIO_PARAM& audio);
bool IsVague(const AUDIO_PARAM& audio);  // such an AVI file's
const char* AudioTypeName(int type);     // "G.711 u-law", ...

// How long so many bytes of sound last.
double SoundMs(int type, const AUDIO_PARAM& audio, long bytes);

// The media fields of a task that records what the reader tells. No audio: a null pointer.
RECORD_TASK_PARAM MediaParams(const VIDEO_PARAM& video, const AUDIO_PARAM* audio, int audioType);

}  // namespace recordctl

#endif
