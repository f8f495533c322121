// Reading frames of any container into values that can be compared.
#ifndef TESTS_FORMAT_FRAME_READING_H
#define TESTS_FORMAT_FRAME_READING_H

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <type_traits>
#include <vector>

#include "record/video_file.h"
#include "tests/support/device_test.h"

namespace formattest {

struct Frame {
  int result = -1;
  bool video = false;
  bool key = false;
  unsigned long stamp = 0;
  std::string payload;
};

// A frame that is the caller's, or with `ownership` 0 the reader's.
inline Frame ReadFrame(CVideoFile& reader, long ownership = 1) {
  Frame frame;
  unsigned char* data = nullptr;
  long owned = 0;
  long video = 0;
  long key = 0;
  frame.result = reader.GetMediaFrame(&data, owned, video, key, frame.stamp);
  EXPECT_TRUE(frame.result >= 0 || data == nullptr);
  if (frame.result < 0 || (frame.result == 0 && owned != ownership)) return frame;
  EXPECT_EQ(owned, ownership);
  const std::unique_ptr<unsigned char[]> payload(owned != 0 ? data : nullptr);
  frame.video = video != 0;
  frame.key = key != 0;
  if (frame.result > 0)
    frame.payload.assign(reinterpret_cast<char*>(data), static_cast<std::size_t>(frame.result));
  return frame;
}

// Reads from the reader's position and expects the packets from `first` up to `end`, and then nothing.
template <typename Packet>
void ExpectPackets(CVideoFile& reader, const std::vector<Packet>& packets, std::size_t first, std::size_t end) {
  for (std::size_t n = first; n < end; ++n) ASSERT_TRUE(ReadFrame(reader) == packets[n]) << "packet " << n;
  EXPECT_EQ(ReadFrame(reader).result, Packet::kBehindTheLast);
}

template <typename Reader>
class ReaderTest : public fake::DeviceTest {
 protected:
  std::string m_path = Path(std::is_same_v<Reader, CAviFile> ? "/clip.avi" : "/clip.kmv");
  Reader m_reader;

  ~ReaderTest() override { m_reader.Close(); }
  int Open(const std::string& bytes) {
    m_reader.Close();
    m_platform.ClearRecord();
    fake::WriteFile(m_path, bytes);
    return m_reader.Open(m_path.c_str());
  }
};

}  // namespace formattest

#endif
