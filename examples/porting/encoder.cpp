// The stream service of the skeleton: a main stream that no camera feeds. Each frame is a function of the clock,
// 25 a second, a key frame every second; the bytes are numbered, not decodable. A device puts its encoder here.
#include <sys/time.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <map>
#include <mutex>
#include <vector>

#include "record/platform.h"

namespace {

constexpr int kFrameMs = 40;
constexpr int kGroup = 25;         // frames from key frame to key frame
constexpr int kFrameBytes = 2000;  // of every frame behind its head
constexpr std::int64_t kHeld = 8 * kGroup;
constexpr unsigned char kParameterSets[] = {0, 0, 0, 1, 0x67, 0x42, 0, 0, 0, 1, 0x68, 0xce};
constexpr unsigned char kStartCode[] = {0, 0, 0, 1};

struct Reader {
  std::int64_t next;                 // number of the frame to read next
  std::vector<unsigned char> frame;  // last read; the reader's until it is released
};

std::mutex g_mutex;  // guards the readers
std::map<std::uintptr_t, Reader> g_readers;

double WallMs() {
  struct timeval now;
  gettimeofday(&now, nullptr);
  return static_cast<double>(now.tv_sec) * 1000 + static_cast<double>(now.tv_usec / 1000);
}

std::int64_t NewestFrame() {
  return static_cast<std::int64_t>(WallMs()) / kFrameMs;
}

std::int64_t KeyFrameOf(std::int64_t frame) {
  return frame - frame % kGroup;
}

std::int64_t OldestKeyFrame() {
  return KeyFrameOf(NewestFrame() - kHeld) + kGroup;
}

void Encode(std::int64_t number, std::vector<unsigned char>& frame) {
  frame.clear();
  const bool key = number % kGroup == 0;
  if (key) frame.insert(frame.end(), std::begin(kParameterSets), std::end(kParameterSets));
  frame.insert(frame.end(), std::begin(kStartCode), std::end(kStartCode));
  frame.push_back(key ? 0x65 : 0x41);
  char text[32];
  std::snprintf(text, sizeof text, "frame %lld;", static_cast<long long>(number));
  frame.insert(frame.end(), text, text + std::strlen(text));
  frame.resize(frame.size() + kFrameBytes, 0x5a);
}

int Register(std::uintptr_t id, double* lookBackMs) {
  const std::int64_t newest = NewestFrame();
  const auto wanted = static_cast<std::int64_t>(std::ceil(*lookBackMs / kFrameMs));
  const std::int64_t first = std::max(KeyFrameOf(newest - wanted), OldestKeyFrame());
  *lookBackMs = static_cast<double>((newest - first) * kFrameMs);
  g_readers[id] = {first, {}};
  return 0;
}

int Read(std::uintptr_t id, StreamFrame* frame) {
  const auto found = g_readers.find(id);
  if (found == g_readers.end()) return -1;
  Reader& reader = found->second;
  if (reader.next > NewestFrame()) return 0;
  // Fallen behind what is held: on to a key frame, and the frame numbers tell of the loss.
  if (reader.next < OldestKeyFrame()) reader.next = KeyFrameOf(NewestFrame());
  const std::int64_t number = reader.next++;
  Encode(number, reader.frame);
  frame->data = reader.frame.data();
  frame->length = static_cast<int>(reader.frame.size());
  frame->keyFrame = number % kGroup == 0 ? 1 : 0;
  frame->timestampMs = static_cast<double>(number) * kFrameMs;
  frame->keyframeIndex = number / kGroup;
  frame->frameIndex = number;
  return frame->length;
}

int GetConfig(StreamFrame* config) {
  static unsigned char sets[sizeof kParameterSets];
  std::memcpy(sets, kParameterSets, sizeof sets);
  config->data = sets;
  config->length = sizeof sets;
  return 0;
}

}  // namespace

int GetStreamData(int command, int stream, std::uintptr_t readerId, void* arg) {
  if (stream != STREAM_MAIN) return -1;  // no sub stream, no audio
  const std::lock_guard<std::mutex> lock(g_mutex);
  switch (command) {
    case STREAM_REGISTER:
      return Register(readerId, static_cast<double*>(arg));
    case STREAM_UNREGISTER:
      g_readers.erase(readerId);
      return 0;
    case STREAM_GET_CONFIG:
      return GetConfig(static_cast<StreamFrame*>(arg));
    case STREAM_READ:
      return Read(readerId, static_cast<StreamFrame*>(arg));
    case STREAM_RELEASE:
      return 0;  // the copy is overwritten by the next read
    default:
      return -1;
  }
}

int SetForceIdr(int) {
  return 0;  // the device's; the next key frame is never more than a second away here
}
