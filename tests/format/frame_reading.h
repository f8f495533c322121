// Reading frames of any container into values that can be compared.
#ifndef TESTS_FORMAT_FRAME_READING_H
#define TESTS_FORMAT_FRAME_READING_H

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "record/video_file.h"

namespace formattest {

struct Frame {
  int result = -1;
  bool video = false;
  bool key = false;
  unsigned long stamp = 0;
  std::string payload;
};

inline Frame ReadFrame(CVideoFile& reader) {
  Frame frame;
  unsigned char* data = nullptr;
  long owned = 0;
  long video = 0;
  long key = 0;
  frame.result = reader.GetMediaFrame(&data, owned, video, key, frame.stamp);
  if (frame.result < 0 || (frame.result == 0 && owned == 0)) return frame;
  EXPECT_EQ(owned, 1);
  std::unique_ptr<unsigned char[]> payload(data);
  frame.video = video != 0;
  frame.key = key != 0;
  if (frame.result > 0)
    frame.payload.assign(reinterpret_cast<char*>(data), static_cast<std::size_t>(frame.result));
  return frame;
}

}  // namespace formattest

#endif
