// The fake platform's MP4 multiplexer and demultiplexer: a trivial file format, every call but the reading of
// frames recorded, failures planned.
#ifndef TESTS_SUPPORT_FAKE_MP4_H
#define TESTS_SUPPORT_FAKE_MP4_H

#include <atomic>
#include <string>
#include <vector>

#include "record/platform.h"

namespace fake {

struct Mp4Frame {
  bool video;
  bool key;
  unsigned timestampMs;
  std::string data;
};

struct Mp4Clip {
  Emp4VideoParams video = {};
  Emp4AudioParams audio = {};
  Emp4ExtraParams extra = {};
  std::vector<Mp4Frame> frames;
};

std::string Mp4Bytes(const Mp4Clip& clip);
Mp4Clip ReadMp4(const std::string& path);  // what the multiplexer has put into it so far

// Set up before threads run.
struct Mp4Plan {
  int opensToRefuse = 0;  // of the multiplexer
  int writeResult = 0;
  int commitResult = 0;
  int seekResult = 0;
  int closeError = 0;  // errno behind a close
};

class Mp4 {
 public:
  static Mp4& Get();
  void Reset();

  Mp4Plan plan;
  std::atomic<int> handles{0};  // open ones
};

}  // namespace fake

#endif
