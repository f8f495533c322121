// The frames that everything is measured with: 1080p H.264 at 4 Mbit/s, 25 frames/s, a key frame every two
// seconds about eight times as large as the others, and G.711 in frames of 40 ms.
#ifndef BENCH_CLIP_H
#define BENCH_CLIP_H

#include <cstdint>
#include <vector>

namespace bench {

struct Frame {
  bool video;
  bool key;
  std::uint32_t ms;  // since the begin of the clip
  unsigned char* data;
  int length;
};

constexpr int kFramesPerSecond = 25;
constexpr int kFrameMs = 1000 / kFramesPerSecond;
constexpr int kAudioFrameBytes = 320;

// Annex B parameter sets of a 1920x1080 stream.
const std::vector<unsigned char>& ParameterSets();

// Always the same for the same length. Video and audio frames alternate, 50 a second. The bytes repeat every
// ten seconds: a recorder's frames come out of memory too, but not all of them out of the cache.
class Clip {
 public:
  explicit Clip(int seconds);
  const std::vector<Frame>& Frames() const { return m_frames; }
  long long PayloadBytes() const { return m_bytes; }

 private:
  void Fill(unsigned char* data, int length, bool key);

  std::vector<unsigned char> m_memory;
  std::vector<Frame> m_frames;
  long long m_bytes = 0;
  std::uint32_t m_random = 20240131;
};

}  // namespace bench

#endif
