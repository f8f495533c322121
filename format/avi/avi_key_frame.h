// Telling key frames by their bytes.
#ifndef FORMAT_AVI_AVI_KEY_FRAME_H
#define FORMAT_AVI_AVI_KEY_FRAME_H

#include <cstddef>
#include <cstdint>

#include "record/types.h"

namespace record {

// How much of a frame is enough to tell, whatever stands in front of its picture.
constexpr std::size_t kKeyFrameBytes = 512;

bool IsKeyFrame(VideoCodec codec, const std::uint8_t* data, std::size_t length);

}  // namespace record

#endif
