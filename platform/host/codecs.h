// The codecs that can be recorded, by libavcodec's names for them.
#ifndef PLATFORM_HOST_CODECS_H
#define PLATFORM_HOST_CODECS_H

#include <optional>
#include <string>

#include "platform/host/av_handles.h"
#include "record/types.h"

namespace record {

std::optional<VideoCodec> RecordableVideo(const AVCodecParameters* parameters);
// Nothing, with the reason in `error`, when the layout is not one that record files can hold.
std::optional<AudioCodec> RecordableAudio(const AVCodecParameters* parameters, std::string* error);

}  // namespace record

#endif
