// What the tests of the KMV reader share.
#ifndef TESTS_FORMAT_KMV_READING_H
#define TESTS_FORMAT_KMV_READING_H

#include "tests/format/frame_reading.h"
#include "tests/format/kmv_bytes.h"

namespace kmvtest {

using formattest::ExpectPackets;
using formattest::Frame;
using formattest::ReadFrame;

inline bool operator==(const Frame& frame, const Packet& packet) {
  return frame.result == static_cast<int>(packet.payload.size()) && frame.video == packet.video &&
         frame.key == packet.key && frame.stamp == packet.stamp && frame.payload == packet.payload;
}

using KmvTest = formattest::ReaderTest<CKmvFile>;

}  // namespace kmvtest

#endif
