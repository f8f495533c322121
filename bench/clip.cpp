#include "bench/clip.h"

#include <algorithm>

namespace bench {
namespace {

constexpr int kGroup = 2 * kFramesPerSecond;           // frames from key frame to key frame
constexpr int kCycle = 10 * kFramesPerSecond;          // frames until the bytes repeat
constexpr int kMeanBytes = 4000000 / 8 * 2;            // of a group
constexpr int kOther = kMeanBytes / (kGroup - 1 + 8);  // a key frame counts as eight
constexpr std::uint32_t kSpread = 40;                  // per cent between the smallest and the largest

std::uint32_t Next(std::uint32_t& state) {
  state = state * 1664525 + 1013904223;
  return state >> 8;
}

}  // namespace

const std::vector<unsigned char>& ParameterSets() {
  static const std::vector<unsigned char> sets = {0,    0,    0,    1,    0x67, 0x64, 0x00, 0x28, 0xac, 0x2b,
                                                  0x40, 0x3c, 0x01, 0x13, 0xf2, 0xe0, 0x22, 0x00, 0x00, 0x03,
                                                  0x00, 0x02, 0x00, 0x00, 0x03, 0x00, 0x65, 0x1e, 0x30, 0x63,
                                                  0x2c, 0,    0,    0,    1,    0x68, 0xee, 0x3c, 0xb0};
  return sets;
}

Clip::Clip(int seconds) {
  const int frames = seconds * kFramesPerSecond;
  std::vector<int> lengths;
  for (int i = 0; i < std::min(frames, kCycle); ++i) {
    const int mean = i % kGroup == 0 ? 8 * kOther : kOther;
    const auto percent = static_cast<int>(100 - kSpread / 2 + Next(m_random) % (kSpread + 1));
    lengths.push_back(mean / 100 * percent);
  }
  std::vector<size_t> offsets;
  size_t total = 0;
  for (const int length : lengths) {
    offsets.push_back(total);
    total += static_cast<size_t>(length + kAudioFrameBytes);
  }
  m_memory.resize(total);
  for (size_t i = 0; i < lengths.size(); ++i) {
    Fill(&m_memory[offsets[i]], lengths[i], i % kGroup == 0);
    std::fill_n(&m_memory[offsets[i] + static_cast<size_t>(lengths[i])], kAudioFrameBytes, 0xd5);
  }
  for (int i = 0; i < frames; ++i) {
    const auto at = static_cast<size_t>(i % kCycle);
    unsigned char* data = &m_memory[offsets[at]];
    const auto ms = static_cast<std::uint32_t>(i * kFrameMs);
    m_frames.push_back({true, i % kGroup == 0, ms, data, lengths[at]});
    m_frames.push_back({false, false, ms, data + lengths[at], kAudioFrameBytes});
    m_bytes += lengths[at] + kAudioFrameBytes;
  }
}

// One slice of noise that holds no start code, with the head of an I or a P picture, behind parameter sets where
// decoding may begin.
void Clip::Fill(unsigned char* data, int length, bool key) {
  std::generate_n(data, length, [this] { return static_cast<unsigned char>(Next(m_random) % 255 + 1); });
  if (key) data = std::copy(ParameterSets().begin(), ParameterSets().end(), data);
  const unsigned char unit = key ? 0x65 : 0x41;
  const unsigned char head = key ? 0x88 : 0x9a;
  const unsigned char slice[] = {0, 0, 0, 1, unit, head};
  std::copy(std::begin(slice), std::end(slice), data);
}

}  // namespace bench
