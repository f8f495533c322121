#include "tests/host/support/frame_collector.h"

#include <unistd.h>

namespace record {

FrameCollector::~FrameCollector() {
  if (m_registered) GetStreamData(STREAM_UNREGISTER, m_stream, m_id, nullptr);
}

bool FrameCollector::Register(double lookBackMs) {
  m_registered = GetStreamData(STREAM_REGISTER, m_stream, m_id, &lookBackMs) == 0;
  return m_registered;
}

size_t FrameCollector::Drain() {
  size_t count = 0;
  StreamFrame frame;
  for (; GetStreamData(STREAM_READ, m_stream, m_id, &frame) > 0; ++count) {
    frames.push_back({frame, std::vector<unsigned char>(frame.data, frame.data + frame.length)});
    GetStreamData(STREAM_RELEASE, m_stream, m_id, nullptr);
  }
  return count;
}

bool FrameCollector::WaitFor(size_t count, int milliseconds) {
  const unsigned long long end = GetCurrentTimeStamp_u64() + static_cast<unsigned long long>(milliseconds);
  while (Drain(), frames.size() < count) {
    if (GetCurrentTimeStamp_u64() > end) return false;
    usleep(5000);
  }
  return true;
}

HostStreamInfoRecord StreamInfo(int stream) {
  HostStreamInfoRecord info = {};
  HostStreamInfo(stream, &info);
  return info;
}

bool AwaitState(int stream, int state) {
  for (int i = 0; i < 4000 && StreamInfo(stream).state != state; ++i) usleep(5000);
  return StreamInfo(stream).state == state;
}

HostStreamOptions Unpaced() {
  HostStreamOptions options = {};
  options.unpaced = 1;
  return options;
}

bool ReadToItsEnd(int stream, const std::string& clip) {
  const HostStreamOptions options = Unpaced();
  return HostStreamOpenWith(stream, clip.c_str(), &options) == 0 && AwaitState(stream, HOST_STREAM_ENDED);
}

std::int64_t MissingFrames(const std::vector<CollectedFrame>& frames) {
  std::int64_t missing = 0;
  for (size_t i = 1; i < frames.size(); ++i)
    missing += frames[i].view.frameIndex - frames[i - 1].view.frameIndex - 1;
  return missing;
}

bool NeverRunsBackwards(const std::vector<CollectedFrame>& frames) {
  for (size_t i = 1; i < frames.size(); ++i) {
    if (frames[i].view.timestampMs < frames[i - 1].view.timestampMs) return false;
  }
  return true;
}

std::vector<unsigned char> StreamConfig(int stream) {
  StreamFrame config;
  constexpr std::uintptr_t kReader = 0xc0f1;
  if (GetStreamData(STREAM_GET_CONFIG, stream, kReader, &config) != 0) return {};
  std::vector<unsigned char> bytes(config.data, config.data + config.length);
  GetStreamData(STREAM_UNREGISTER, stream, kReader, nullptr);
  return bytes;
}

}  // namespace record
