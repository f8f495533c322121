#include "record/pre_record.h"

#include <pthread.h>
#include <sys/prctl.h>

#include <atomic>
#include <cstring>
#include <mutex>

#include "base/clock.h"
#include "base/log.h"
#include "record/platform.h"
#include "record/pre_record_drain.h"

namespace record {
namespace {

constexpr std::uintptr_t kPreRecordReader = 0xabcdefab;  // no task's id
constexpr int kMaxFrames = 2048;
constexpr int kRingRegisterAttempts = 100;
constexpr int kAttemptsBeforeUnregister = 20;
constexpr int kRetryMs = 100;
constexpr int kRingPassMs = 10;

// One ring, its newest time stamp, and the lock that keeps it in place while somebody reads from it.
struct PreRecordRing {
  std::mutex reader;  // held while frames are taken, and to release the ring
  void* ring = nullptr;
  std::atomic<double> newestMs{0};
};

struct PreRecordBuffer {
  std::mutex control;  // PreRecInit and PreRecRelease
  int audioEnable = 0;
  PreRecordRing main;
  PreRecordRing sub;
  std::atomic<int> stop{0};
  std::atomic<int> status{0};  // 1 while the thread runs
  pthread_t thread{};

  PreRecordRing& Of(int stream) { return stream == STREAM_MAIN ? main : sub; }
  bool Usable() const { return status != 0 && stop == 0; }
};

PreRecordBuffer g_preRecordObj;

const char* StreamName(int stream) {
  return stream == STREAM_MAIN ? "main" : "sub";
}

bool RegisterVideo(int stream) {
  for (int attempt = 0; attempt < kRingRegisterAttempts && g_preRecordObj.stop == 0; ++attempt) {
    double lookBack = 0;
    if (GetStreamData(STREAM_REGISTER, stream, kPreRecordReader, &lookBack) >= 0) return true;
    RECORD_LOG("register video reader for %s failed!\n\n", StreamName(stream));
    SleepMs(kRetryMs);
  }
  return false;
}

bool RegisterAudio() {
  for (int attempt = 1; attempt <= kRingRegisterAttempts && g_preRecordObj.stop == 0; ++attempt) {
    double lookBack = 0;
    if (GetStreamData(STREAM_REGISTER, STREAM_AUDIO, kPreRecordReader, &lookBack) >= 0) return true;
    RECORD_LOG_TEXT("register audio reader failed!\n\n");
    if (attempt == kAttemptsBeforeUnregister) {
      RECORD_LOG_TEXT("unregister reader for audio\n\n");
      GetStreamData(STREAM_UNREGISTER, STREAM_AUDIO, kPreRecordReader, nullptr);
    }
    SleepMs(kRetryMs);
  }
  RECORD_LOG_TEXT("register audio reader failed!, continue\n\n");
  return false;
}

void Keep(PreRecordRing& ring, const StreamFrame& frame, RingFrameType type) {
  const RingFrameInfo info = {type, static_cast<std::uint32_t>(frame.keyframeIndex), frame.timestampMs,
                              frame.frameIndex};
  OsalRingWrite(ring.ring, &info, frame.data, frame.length);
}

void TakeVideo(int stream) {
  StreamFrame frame = {};
  const int result = GetStreamData(STREAM_READ, stream, kPreRecordReader, &frame);
  if (result < 0) RECORD_LOG_TEXT("read video frame failed!\n\n");
  if (result <= 0) return;
  PreRecordRing& ring = g_preRecordObj.Of(stream);
  ring.newestMs = frame.timestampMs;
  Keep(ring, frame, frame.keyFrame != 0 ? RING_FRAME_KEY : RING_FRAME_VIDEO);
  GetStreamData(STREAM_RELEASE, stream, kPreRecordReader, nullptr);
}

void TakeAudio() {
  StreamFrame frame = {};
  const int result = GetStreamData(STREAM_READ, STREAM_AUDIO, kPreRecordReader, &frame);
  if (result < 0) RECORD_LOG_TEXT("read audio frame failed!\n\n");
  if (result <= 0) return;
  Keep(g_preRecordObj.main, frame, RING_FRAME_AUDIO);
  Keep(g_preRecordObj.sub, frame, RING_FRAME_AUDIO);
  GetStreamData(STREAM_RELEASE, STREAM_AUDIO, kPreRecordReader, nullptr);
}

void* pre_record_thread(void*) {
  prctl(PR_SET_NAME, "pre_record_thread");
  SetForceIdr(STREAM_MAIN);
  SetForceIdr(STREAM_SUB);
  const bool hasMain = RegisterVideo(STREAM_MAIN);
  const bool hasSub = RegisterVideo(STREAM_SUB);
  const bool hasAudio = g_preRecordObj.audioEnable != 0 && RegisterAudio();
  while (g_preRecordObj.stop == 0) {
    if (hasMain) TakeVideo(STREAM_MAIN);
    if (hasSub) TakeVideo(STREAM_SUB);
    if (hasAudio) TakeAudio();
    SleepMs(kRingPassMs);
  }
  if (hasMain) GetStreamData(STREAM_UNREGISTER, STREAM_MAIN, kPreRecordReader, nullptr);
  if (hasSub) GetStreamData(STREAM_UNREGISTER, STREAM_SUB, kPreRecordReader, nullptr);
  if (hasAudio) GetStreamData(STREAM_UNREGISTER, STREAM_AUDIO, kPreRecordReader, nullptr);
  return nullptr;
}

void SetRing(PreRecordRing& ring, void* made) {
  const std::lock_guard<std::mutex> lock(ring.reader);
  ring.ring = made;
}

void ReleaseRing(PreRecordRing& ring) {
  const std::lock_guard<std::mutex> lock(ring.reader);
  if (ring.ring != nullptr) OsalRingRelease(ring.ring);
  ring.ring = nullptr;
  ring.newestMs = 0;
}

unsigned char* TakeOldest(PreRecordRing& ring, int* length, RingFrameInfo* info) {
  *length = 0;
  if (!g_preRecordObj.Usable() || ring.ring == nullptr) return nullptr;
  return OsalRingRead(ring.ring, length, info);
}

void DropExpired(PreRecordRing& ring, int seconds) {
  if (!g_preRecordObj.Usable() || ring.ring == nullptr) return;
  const double newest = ring.newestMs;
  while (true) {
    RingFrameInfo info = {};
    if (OsalRingGetFrameInfo(ring.ring, &info) < 0) {
      RECORD_LOG_TEXT("no frame data\n\n");
      return;
    }
    if (info.type != RING_FRAME_AUDIO && info.timestampMs + seconds * 1000.0 >= newest) return;
    int length = 0;
    OsalRingRead(ring.ring, &length, &info);
  }
}

}  // namespace

PreRecordDrain::PreRecordDrain(int stream) : m_stream(stream) {
  m_owns = g_preRecordObj.Of(stream).reader.try_lock();
}

PreRecordDrain::~PreRecordDrain() {
  if (m_owns) g_preRecordObj.Of(m_stream).reader.unlock();
}

unsigned char* PreRecordDrain::Next(int* length, RingFrameInfo* info) {
  *length = 0;
  return m_owns ? TakeOldest(g_preRecordObj.Of(m_stream), length, info) : nullptr;
}

void PreRecordDrain::DropExpiredFrames(int seconds) {
  if (m_owns) DropExpired(g_preRecordObj.Of(m_stream), seconds);
}

}  // namespace record

using record::g_preRecordObj;

int PreRecInit(int audioEnable, int mainSize, int subSize) {
  RECORD_LOG("audioEnable=%d, mainStreamSize=%d, subStreamSize=%d\n\n", audioEnable, mainSize, subSize);
  const std::lock_guard<std::mutex> control(g_preRecordObj.control);
  if (g_preRecordObj.status != 0) return -1;
  void* const main = OsalRingInit(mainSize, record::kMaxFrames);
  if (main == nullptr) {
    RECORD_LOG_TEXT("init main ring buffer fail\n\n");
    return -1;
  }
  void* const sub = OsalRingInit(subSize, record::kMaxFrames);
  if (sub == nullptr) {
    RECORD_LOG_TEXT("init sub ring bufffer fail\n\n");
    OsalRingRelease(main);
    return -1;
  }
  g_preRecordObj.audioEnable = audioEnable;
  record::SetRing(g_preRecordObj.main, main);
  record::SetRing(g_preRecordObj.sub, sub);
  g_preRecordObj.stop = 0;
  const int error = pthread_create(&g_preRecordObj.thread, nullptr, record::pre_record_thread, nullptr);
  if (error != 0) {
    RECORD_LOG("create pre_record_thread failed %d error.\n\n", error);
    record::ReleaseRing(g_preRecordObj.main);
    record::ReleaseRing(g_preRecordObj.sub);
    return -1;
  }
  RECORD_LOG_TEXT("create pre_record_thread success\n\n");
  g_preRecordObj.status = 1;
  return 0;
}

int PreRecRelease() {
  const std::lock_guard<std::mutex> control(g_preRecordObj.control);
  if (g_preRecordObj.status == 0) return 0;
  g_preRecordObj.stop = 1;
  pthread_join(g_preRecordObj.thread, nullptr);
  record::ReleaseRing(g_preRecordObj.main);
  record::ReleaseRing(g_preRecordObj.sub);
  g_preRecordObj.status = 0;
  return 0;
}

int PreRecGetStatus() {
  return g_preRecordObj.status;
}

unsigned char* PreRecGetFrame(int stream, int* length, RingFrameInfo* info) {
  record::PreRecordRing& ring = g_preRecordObj.Of(stream);
  const std::lock_guard<std::mutex> lock(ring.reader);
  return record::TakeOldest(ring, length, info);
}

int PreRecDelExpiredFrame(int stream, int seconds) {
  record::PreRecordRing& ring = g_preRecordObj.Of(stream);
  const std::lock_guard<std::mutex> lock(ring.reader);
  record::DropExpired(ring, seconds);
  return 0;
}
