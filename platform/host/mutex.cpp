#include <atomic>
#include <cstdint>
#include <ctime>
#include <mutex>

#include "record/platform.h"

namespace {

// The coarse clock costs no more than a memory read; a watchdog asks in seconds.
std::uint32_t CoarseMs() {
  struct timespec now;
  clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
  return static_cast<std::uint32_t>(now.tv_sec) * 1000u + static_cast<std::uint32_t>(now.tv_nsec / 1000000);
}

// An address that no other living thread has.
const void* ThisThread() {
  static thread_local char token;
  return &token;
}

struct MutexState {
  std::mutex mutex;
  // Written by the holder only, read by anyone; `owner` is set last and cleared first.
  std::atomic<const void*> owner{nullptr};
  std::atomic<unsigned int> line{0};
  std::atomic<std::uint32_t> lockedAt{0};
};

MutexState& State(void* impl) {
  return *static_cast<MutexState*>(impl);
}

}  // namespace

CMutex::CMutex() : m_impl(new MutexState) {}

CMutex::~CMutex() {
  delete static_cast<MutexState*>(m_impl);
}

int CMutex::Lock(unsigned int line) {
  MutexState& state = State(m_impl);
  state.mutex.lock();
  state.lockedAt.store(CoarseMs(), std::memory_order_relaxed);
  state.line.store(line, std::memory_order_relaxed);
  state.owner.store(ThisThread(), std::memory_order_release);
  return 0;
}

int CMutex::Unlock() {
  MutexState& state = State(m_impl);
  if (state.owner.load(std::memory_order_relaxed) != ThisThread()) return -1;
  state.owner.store(nullptr, std::memory_order_relaxed);
  state.line.store(0, std::memory_order_relaxed);
  state.mutex.unlock();
  return 0;
}

int CMutex::UnLock() {
  return Unlock();
}

int CMutex::IsLockedExeedtime(unsigned int milliseconds) {
  return GetLockedTime() > milliseconds ? 1 : 0;
}

unsigned int CMutex::GetLockedLine() {
  return State(m_impl).line.load(std::memory_order_relaxed);
}

unsigned int CMutex::GetLockedTime() {
  MutexState& state = State(m_impl);
  if (state.owner.load(std::memory_order_acquire) == nullptr) return 0;
  // The time of locking is read before the present one, or the next holder's could lie in the future.
  const std::uint32_t since = state.lockedAt.load(std::memory_order_acquire);
  const std::int32_t held = static_cast<std::int32_t>(CoarseMs() - since);
  return held > 0 ? static_cast<unsigned int>(held) : 0;
}
