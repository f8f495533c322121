// What the tests of the AVI reader share.
#ifndef TESTS_FORMAT_AVI_READING_H
#define TESTS_FORMAT_AVI_READING_H

#include "tests/format/avi_bytes.h"
#include "tests/format/frame_reading.h"

namespace avitest {

using formattest::ExpectPackets;
using formattest::Frame;
using formattest::ReadFrame;

inline bool operator==(const Frame& frame, const Packet& packet) {
  return frame.result == static_cast<int>(packet.payload.size()) && frame.video == packet.video &&
         frame.key == packet.key && frame.payload == packet.payload;
}

using AviTest = formattest::ReaderTest<CAviFile>;

}  // namespace avitest

#endif
