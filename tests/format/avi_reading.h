// What the tests of the AVI reader share.
#ifndef TESTS_FORMAT_AVI_READING_H
#define TESTS_FORMAT_AVI_READING_H

#include "tests/format/avi_bytes.h"
#include "tests/format/frame_reading.h"
#include "tests/support/device_test.h"

namespace avitest {

using formattest::Frame;
using formattest::ReadFrame;

inline bool operator==(const Frame& frame, const Chunk& chunk) {
  return frame.result == static_cast<int>(chunk.payload.size()) && frame.video == chunk.video &&
         frame.key == chunk.key && frame.payload == chunk.payload;
}

// Reads from the reader's position and expects the chunks from `first` up to `end`, and then the end.
inline void ExpectChunks(CVideoFile& reader, const File& file, std::size_t first, std::size_t end) {
  for (std::size_t n = first; n < end; ++n) ASSERT_TRUE(ReadFrame(reader) == file.Chunks()[n]) << "chunk " << n;
  EXPECT_EQ(ReadFrame(reader).result, -2);
}

class AviTest : public fake::DeviceTest {
 protected:
  std::string m_path = Path("/clip.avi");
  CAviFile m_reader;

  ~AviTest() override { m_reader.Close(); }
  int Open(const std::string& bytes) {
    m_reader.Close();
    m_platform.ClearRecord();
    fake::WriteFile(m_path, bytes);
    return m_reader.Open(m_path.c_str());
  }
};

}  // namespace avitest

#endif
