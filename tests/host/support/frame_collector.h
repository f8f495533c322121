// A reader of a stream that keeps copies of what it read.
#ifndef TESTS_HOST_SUPPORT_FRAME_COLLECTOR_H
#define TESTS_HOST_SUPPORT_FRAME_COLLECTOR_H

#include <cstdint>
#include <string>
#include <vector>

#include "record/platform.h"
#include "record_host/host.h"

namespace record {

struct CollectedFrame {
  StreamFrame view;  // `data` is not valid any more
  std::vector<unsigned char> bytes;
};

class FrameCollector {
 public:
  FrameCollector(int stream, std::uintptr_t id) : m_stream(stream), m_id(id) {}
  ~FrameCollector();
  FrameCollector(const FrameCollector&) = delete;
  FrameCollector& operator=(const FrameCollector&) = delete;

  bool Register(double lookBackMs);
  // Reads what there is; how many frames that was.
  size_t Drain();
  // Drains until `count` frames are there or `milliseconds` are over.
  bool WaitFor(size_t count, int milliseconds);

  std::vector<CollectedFrame> frames;

 private:
  const int m_stream;
  const std::uintptr_t m_id;
  bool m_registered = false;
};

HostStreamInfoRecord StreamInfo(int stream);
bool AwaitState(int stream, int state);
HostStreamOptions Unpaced();
// Opens the clip as that stream and reads it to its end, as fast as it goes. False when it does not come to that.
bool ReadToItsEnd(int stream, const std::string& clip);

// How many frames are missing in the numbering of `frames`.
std::int64_t MissingFrames(const std::vector<CollectedFrame>& frames);
bool NeverRunsBackwards(const std::vector<CollectedFrame>& frames);
std::vector<unsigned char> StreamConfig(int stream);

}  // namespace record

#endif
