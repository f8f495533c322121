// The mutex of the fake platform: the simplest that keeps the contract, held for as long as the fake clock says.
#include <mutex>
#include <thread>

#include "record/platform.h"
#include "tests/support/fake_clock.h"

namespace {

struct Mutex {
  std::mutex mutex;
  std::mutex state;
  std::thread::id holder;
  unsigned line = 0;
  long long since = 0;
};

}  // namespace

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
