// Which frames of a recording an MP4 file can take.
#ifndef RECORDCTL_MP4_FRAME_CHECK_H
#define RECORDCTL_MP4_FRAME_CHECK_H

#include "export/job.h"

namespace recordctl {

// For one export. Refused are pictures without a unit, a first picture that does not configure a decoder, and AAC
// without ADTS heads or with ones unlike the first.
record::FrameCheck Mp4FrameCheck();

}  // namespace recordctl

#endif
