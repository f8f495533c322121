// What the tests of the KMV reader share.
#ifndef TESTS_FORMAT_KMV_READING_H
#define TESTS_FORMAT_KMV_READING_H

#include <string>
#include <vector>

#include "tests/format/frame_reading.h"
#include "tests/format/kmv_bytes.h"
#include "tests/support/device_test.h"

namespace kmvtest {

using formattest::Frame;
using formattest::ReadFrame;

inline bool operator==(const Frame& frame, const Packet& packet) {
  return frame.result == static_cast<int>(packet.payload.size()) && frame.video == packet.video &&
         frame.key == packet.key && frame.stamp == packet.stamp && frame.payload == packet.payload;
}

// Reads from the reader's position and expects the packets from `first` up to `end`, and then nothing.
inline void ExpectPackets(CVideoFile& reader, const std::vector<Packet>& packets, std::size_t first,
                          std::size_t end) {
  for (std::size_t n = first; n < end; ++n) ASSERT_TRUE(ReadFrame(reader) == packets[n]) << "packet " << n;
  EXPECT_EQ(ReadFrame(reader).result, -1);
}

class KmvTest : public fake::DeviceTest {
 protected:
  std::string m_path = Path("/clip.kmv");
  CKmvFile m_reader;

  ~KmvTest() override { m_reader.Close(); }
  int Open(const std::string& bytes) {
    m_reader.Close();
    fake::WriteFile(m_path, bytes);
    return m_reader.Open(m_path.c_str());
  }
};

}  // namespace kmvtest

#endif
