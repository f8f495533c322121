// What an AVI header says of its streams, in the words of the reader interface.
#ifndef FORMAT_AVI_AVI_PARAMS_H
#define FORMAT_AVI_AVI_PARAMS_H

#include "format/avi/avi_head.h"

namespace record {

VIDEO_PARAM AviVideoParam(const AviHead& head);  // without the codec configuration
AUDIO_PARAM AviAudioParam(const AviHead& head);

// Takes the codec configuration out of the first key frame, whose chunk stands at `chunkOffset`. A file that ends
// within the bytes that are looked at is told by a log line and gives what it has: short recordings are files,
// too.
void AviReadConfig(const FileSource& source, VideoCodec codec, long long chunkOffset, VIDEO_PARAM& video);

}  // namespace record

#endif
