#include "tests/trust/frames.h"

#include <sys/time.h>

#include <algorithm>
#include <cstring>
#include <thread>

#include "record_host/host.h"
#include "tests/trust/journal.h"

namespace trust {
namespace {

constexpr int kStreams = 3;
constexpr int kSamplesPerSecond = 8000;
constexpr int kNumberBytes = 5;  // seven bits each, the eighth is set
// Of a picture of 64 x 64 points.
constexpr unsigned char kParameterSets[] = {0,    0,    0,    1, 0x67, 0x42, 0xc0, 0x0a, 0xd9, 0x04, 0x26, 0xc0,
                                            0x44, 0,    0,    3, 0,    4,    0,    0,    3,    0,    0xc8, 0x3c,
                                            0x48, 0x99, 0x20, 0, 0,    0,    1,    0x68, 0xcb, 0x83, 0xcb, 0x20};

// The parameter sets and the first bytes of a slice.
std::vector<unsigned char> HeadOf(FrameKind kind) {
  if (kind == FrameKind::kSound) return {};
  if (kind == FrameKind::kPicture) return {0, 0, 0, 1, 0x41, 0x9a};
  std::vector<unsigned char> head = ConfigBytes();
  for (const unsigned char byte : {0, 0, 0, 1, 0x65, 0x88}) head.push_back(byte);
  return head;
}

double WallMs() {
  struct timeval now;
  gettimeofday(&now, nullptr);
  return static_cast<double>(now.tv_sec) * 1000 + static_cast<double>(now.tv_usec) / 1000;
}

void Publish(const FeedPlan& plan, std::uint32_t n, double timestampMs) {
  for (std::uint32_t stream = 0; stream < kStreams; ++stream) {
    int length = kSamplesPerSecond / plan.framesPerSecond;  // sound that lasts as long as the step
    if (stream != STREAM_AUDIO) {
      length = plan.frameLength + static_cast<int>(n * 37 % 251);
      if (plan.hugeLength > 0 && n % 8 == 5) length = plan.hugeLength;
    }
    const int key = n % static_cast<std::uint32_t>(plan.framesPerGroup) == 0 ? 1 : 0;
    const FrameKind kind = stream == STREAM_AUDIO ? FrameKind::kSound
                           : key != 0             ? FrameKind::kKeyPicture
                                                  : FrameKind::kPicture;
    const std::vector<unsigned char> bytes = FrameBytes(n * kStreams + stream, length, kind);
    HostStreamPublish(static_cast<int>(stream), bytes.data(), length, key, timestampMs, 0);
  }
}

// Late frames are made up for, so that the rate holds however the thread is scheduled.
void Feed(const FeedPlan& plan) {
  const double startMs = WallMs();
  const std::int64_t startNs = NowNs();
  const std::int64_t stepNs = 1000000000LL / plan.framesPerSecond;
  for (std::uint32_t n = 0;; ++n) {
    const std::int64_t dueNs = startNs + n * stepNs;
    while (NowNs() < dueNs) std::this_thread::sleep_for(std::chrono::nanoseconds(dueNs - NowNs()));
    Publish(plan, n, startMs + static_cast<double>(n * stepNs) / 1e6);
  }
}

}  // namespace

std::vector<unsigned char> ConfigBytes() {
  return {kParameterSets, kParameterSets + sizeof kParameterSets};
}

// No byte behind the heads is zero, so that nothing there looks like a start code.
std::vector<unsigned char> FrameBytes(std::uint32_t number, int length, FrameKind kind) {
  std::vector<unsigned char> bytes = HeadOf(kind);
  for (int shift = 0; shift < kNumberBytes * 7; shift += 7)
    bytes.push_back(static_cast<unsigned char>(0x80 | (number >> shift & 0x7f)));
  size_t at = bytes.size();
  bytes.resize(static_cast<size_t>(length));
  std::uint64_t state = (number + 1) * 0x9e3779b97f4a7c15ULL;
  for (; at < bytes.size(); at += sizeof state) {
    state ^= state << 13;
    state ^= state >> 7;
    state ^= state << 17;
    const std::uint64_t filled = state | 0x0101010101010101ULL;
    std::memcpy(&bytes[at], &filled, std::min(sizeof filled, bytes.size() - at));
  }
  return bytes;
}

std::uint32_t FrameNumber(const char* data, int length) {
  const auto* bytes = reinterpret_cast<const unsigned char*>(data);
  for (const FrameKind kind : {FrameKind::kKeyPicture, FrameKind::kPicture}) {
    const std::vector<unsigned char> head = HeadOf(kind);
    if (static_cast<size_t>(length) < head.size() || std::memcmp(bytes, head.data(), head.size()) != 0) continue;
    bytes += head.size();
    break;
  }
  std::uint32_t number = 0;
  for (int n = 0; n < kNumberBytes; ++n) number |= (bytes[n] & 0x7fu) << (7 * n);
  return number;
}

void StartFeeding(const FeedPlan& plan) {
  HostStreamSetConfig(STREAM_MAIN, kParameterSets, sizeof kParameterSets);
  HostStreamSetConfig(STREAM_SUB, kParameterSets, sizeof kParameterSets);
  HostStreamSetConfig(STREAM_AUDIO, nullptr, 0);
  std::thread(Feed, plan).detach();
}

}  // namespace trust
