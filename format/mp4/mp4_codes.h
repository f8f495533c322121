// The codes by which multiplexer, demultiplexer and library understand each other. On disk by way of the
// platform, never renumber.
#ifndef FORMAT_MP4_MP4_CODES_H
#define FORMAT_MP4_MP4_CODES_H

#include "record/types.h"

namespace record {

enum Mp4AudioCode : std::int32_t { kMp4Aac = 10, kMp4G711Ulaw = 11, kMp4G711Alaw = 12 };

enum Mp4FrameType : int { kMp4VideoFrame = 0 };  // everything else is audio

}  // namespace record

#endif
