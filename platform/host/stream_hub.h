// The stream hub: hands the encoded frames of each stream from one producer to any number of readers.
//
// Frames are immutable and shared, so that reading is one short lock and no copy, and a frame that a reader
// holds outlives its eviction. The hub knows nothing of where frames come from.
#ifndef PLATFORM_HOST_STREAM_HUB_H
#define PLATFORM_HOST_STREAM_HUB_H

#include <array>
#include <atomic>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

#include "record/platform.h"

namespace record {

// What a producer hands in. The bytes belong to `owner` and are never written again.
struct EncodedFrame {
  const unsigned char* data;
  int length;
  bool keyFrame;
  double timestampMs;
  int lost;  // frames known to be missing just before this one
  std::shared_ptr<const void> owner;
};

// One stream. Every member function may be called from any thread.
class HubStream {
 public:
  explicit HubStream(bool isAudio) : m_isAudio(isAudio) {}

  // Producer. Publish: whether readers get the frame (video waits for a key frame at first and after a loss).
  void SetConfig(std::vector<unsigned char> config);
  bool Publish(EncodedFrame frame);
  void SetLookBack(double milliseconds, std::int64_t bytes);
  void Clear();
  // The source was lost: what is held is of the past, whatever age it has.
  void Interrupt();
  // The newest time stamp handed out; 0 when nobody can tell.
  double LastTimestampMs();

  // Run time since the newest key frame came, in milliseconds; below 0: none has come since the begin or the last
  // interruption.
  long long KeyFrameAgeMs();

  // Readers; the results are those of GetStreamData.
  int Register(std::uintptr_t id, double* lookBackMs);
  int Unregister(std::uintptr_t id);
  int GetConfig(std::uintptr_t id, StreamFrame* out);
  int Read(std::uintptr_t id, StreamFrame* out);
  int Release(std::uintptr_t id);

 private:
  using Config = std::shared_ptr<const std::vector<unsigned char>>;

  struct HeldFrame {
    StreamFrame view;
    std::shared_ptr<const void> owner;
  };
  struct Reader {
    bool registered = false;
    bool needsKeyFrame = false;
    std::uint64_t position = 0;           // of the next frame to read
    std::shared_ptr<const void> reading;  // keeps the frame last read
    Config config;                        // keeps the configuration last given
  };
  using Frames = std::vector<std::shared_ptr<const void>>;

  bool EndsWaiting(const EncodedFrame& frame);
  void ForgetTimeUnseen();
  void Evict(Frames* evicted);
  void DropOldest(Frames* evicted);
  std::uint64_t End() const { return m_base + m_frames.size(); }
  const HeldFrame& At(std::uint64_t position) const { return m_frames[position - m_base]; }
  std::uint64_t StartFor(double lookBackMs) const;
  Reader* FindReader(std::uintptr_t id);  // null when it never called
  Reader& ReaderFor(std::uintptr_t id);
  void CatchUp(Reader* reader) const;

  const bool m_isAudio;

  std::mutex m_mutex;  // guards the rest
  bool m_isThere = false;
  Config m_config;
  double m_lookBackMs = 16000;
  std::int64_t m_lookBackBytes = 32 * 1024 * 1024;
  std::deque<HeldFrame> m_frames;
  std::deque<std::uint64_t> m_keys;  // positions of the frames at which reading may begin
  std::uint64_t m_base = 0;          // position of the oldest frame held; positions have no gaps
  std::int64_t m_bytes = 0;
  std::int64_t m_nextFrameIndex = 0;
  std::int64_t m_keyframeIndex = 0;
  bool m_hasNewKey = false;          // since the last interruption
  unsigned long long m_keyAtMs = 0;  // run time at which the newest key frame came
  double m_lastTimestampMs = 0;
  bool m_waitsForKey = true;
  std::vector<std::pair<std::uintptr_t, Reader>> m_readers;  // few, and looked for at every read: no map
};

class StreamHub {
 public:
  static constexpr int kStreams = 8;

  static StreamHub& Get();
  // Null when there is no such stream.
  HubStream* Stream(int stream);
  void SetKeyFrameHook(void (*hook)(void*, int), void* context);
  int RequestKeyFrame(int stream);
  std::int64_t KeyFrameRequests(int stream) const;

 private:
  StreamHub() = default;

  HubStream m_video[kStreams - 1] = {HubStream(false), HubStream(false), HubStream(false), HubStream(false),
                                     HubStream(false), HubStream(false), HubStream(false)};
  HubStream m_audio{true};
  std::array<std::atomic<std::int64_t>, kStreams> m_keyFrameRequests{};
  std::mutex m_hookMutex;  // guards the hook, not its run
  void (*m_hook)(void*, int) = nullptr;
  void* m_hookContext = nullptr;
};

}  // namespace record

#endif
