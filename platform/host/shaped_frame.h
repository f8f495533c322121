// How a packet's bytes become a frame: by reference, or once copied with something put in.
#ifndef PLATFORM_HOST_SHAPED_FRAME_H
#define PLATFORM_HOST_SHAPED_FRAME_H

#include "platform/host/packet_shaper.h"

namespace record {

// Moves the packet's reference into the frame.
bool TakeWhole(AVPacket* packet, ShapedFrame* frame);
// The packet's bytes with `inserted` put in at `at`.
bool TakeWithInsertion(const AVPacket* packet, size_t at, const unsigned char* inserted, size_t insertedLength,
                       ShapedFrame* frame);

bool TakeBytes(Bytes bytes, ShapedFrame* frame);

}  // namespace record

#endif
