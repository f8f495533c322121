// Frames of a record file, one after the other, by the library's readers.
#ifndef RECORDCTL_FRAME_READER_H
#define RECORDCTL_FRAME_READER_H

#include "record/video_file.h"

namespace recordctl {

struct Frame {
  long long number = 0;
  unsigned char* data = nullptr;
  long length = 0;
  bool video = false;
  bool key = false;
  unsigned long timestamp = 0;
};

// Frames come in files' order; the data of one is gone with the next.
class FrameReader {
 public:
  explicit FrameReader(CVideoFile& file) : m_file(file) {}
  ~FrameReader() { Release(); }
  FrameReader(const FrameReader&) = delete;
  FrameReader& operator=(const FrameReader&) = delete;

  bool Next(Frame& frame);

 private:
  void Release();

  CVideoFile& m_file;
  unsigned char* m_owned = nullptr;
  long long m_number = 0;
};

}  // namespace recordctl

#endif
