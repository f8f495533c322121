// The stsd boxes of MP4 tracks: what a decoder has to know before the first sample.
#ifndef PLATFORM_HOST_MP4_SAMPLE_DESCRIPTION_H
#define PLATFORM_HOST_MP4_SAMPLE_DESCRIPTION_H

#include <cstdint>

#include "platform/host/adts.h"
#include "record/types.h"

namespace record {

struct PictureSize {
  int width = 0;
  int height = 0;
};

// The size that the parameter sets in front of the key frame tell; `fallback` when they do not.
PictureSize SizeOfPictures(VideoCodec codec, const unsigned char* keyFrame, int length, PictureSize fallback);

// Each is empty when libavformat refuses the configuration. `sets`: Annex B parameter sets.
Bytes DescribeVideo(VideoCodec codec, const Bytes& sets, PictureSize size);
Bytes DescribeAac(const AacConfig& config);
// "ulaw" or "alaw".
Bytes DescribeG711(const char* type, int samplerate, int channels);

}  // namespace record

#endif
