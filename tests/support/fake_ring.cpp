// Frame rings and the mutex of the fake platform: the simplest that keep the contract.
#include <deque>
#include <mutex>
#include <string>
#include <thread>

#include "record/platform.h"
#include "tests/support/fake_clock.h"

namespace {

struct Ring {
  std::mutex mutex;
  int bytes = 0;
  int maxFrames = 0;
  int used = 0;
  std::deque<std::pair<RingFrameInfo, std::string>> frames;
  std::string taken;

  void DropOldest() {
    used -= static_cast<int>(frames.front().second.size());
    frames.pop_front();
  }
};

struct Mutex {
  std::mutex mutex;
  std::mutex state;
  std::thread::id holder;
  unsigned line = 0;
  long long since = 0;
};

}  // namespace

void* OsalRingInit(int bytes, int maxFrames) {
  if (bytes <= 0) return nullptr;
  Ring* ring = new Ring;
  ring->bytes = bytes;
  ring->maxFrames = maxFrames;
  return ring;
}

int OsalRingWrite(void* handle, const RingFrameInfo* info, const unsigned char* data, int length) {
  Ring* ring = static_cast<Ring*>(handle);
  std::lock_guard<std::mutex> lock(ring->mutex);
  if (length > ring->bytes) return -1;
  while (ring->used + length > ring->bytes || static_cast<int>(ring->frames.size()) >= ring->maxFrames)
    ring->DropOldest();
  ring->frames.emplace_back(*info, std::string(reinterpret_cast<const char*>(data), static_cast<size_t>(length)));
  ring->used += length;
  return 0;
}

unsigned char* OsalRingRead(void* handle, int* length, RingFrameInfo* info) {
  Ring* ring = static_cast<Ring*>(handle);
  std::lock_guard<std::mutex> lock(ring->mutex);
  *length = 0;
  if (ring->frames.empty()) return nullptr;
  *info = ring->frames.front().first;
  ring->taken = ring->frames.front().second;
  ring->DropOldest();
  *length = static_cast<int>(ring->taken.size());
  return reinterpret_cast<unsigned char*>(ring->taken.data());
}

int OsalRingGetFrameInfo(void* handle, RingFrameInfo* info) {
  Ring* ring = static_cast<Ring*>(handle);
  std::lock_guard<std::mutex> lock(ring->mutex);
  if (ring->frames.empty()) return -1;
  *info = ring->frames.front().first;
  return 0;
}

void OsalRingRelease(void* handle) {
  delete static_cast<Ring*>(handle);
}

CMutex::CMutex() : m_impl(new Mutex) {}

CMutex::~CMutex() {
  delete static_cast<Mutex*>(m_impl);
}

int CMutex::Lock(unsigned int line) {
  Mutex* self = static_cast<Mutex*>(m_impl);
  self->mutex.lock();
  std::lock_guard<std::mutex> lock(self->state);
  self->holder = std::this_thread::get_id();
  self->line = line;
  self->since = fake::Clock::Get().RunUs();
  return 0;
}

int CMutex::Unlock() {
  Mutex* self = static_cast<Mutex*>(m_impl);
  {
    std::lock_guard<std::mutex> lock(self->state);
    if (self->line == 0 || self->holder != std::this_thread::get_id()) return -1;
    self->line = 0;
  }
  self->mutex.unlock();
  return 0;
}

int CMutex::UnLock() {
  return Unlock();
}

int CMutex::IsLockedExeedtime(unsigned int milliseconds) {
  return GetLockedTime() > milliseconds ? 1 : 0;
}

unsigned int CMutex::GetLockedLine() {
  Mutex* self = static_cast<Mutex*>(m_impl);
  std::lock_guard<std::mutex> lock(self->state);
  return self->line;
}

unsigned int CMutex::GetLockedTime() {
  Mutex* self = static_cast<Mutex*>(m_impl);
  const long long now = fake::Clock::Get().RunUs();
  std::lock_guard<std::mutex> lock(self->state);
  return self->line == 0 ? 0 : static_cast<unsigned>((now - self->since) / 1000);
}
