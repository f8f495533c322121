#include "tests/support/fake_clock.h"

#include <chrono>
#include <ctime>
#include <thread>

#include "base/clock.h"

namespace fake {

thread_local Clock::Membership Clock::t_membership;

Clock& Clock::Get() {
  static Clock* clock = new Clock;  // outlives every thread
  return *clock;
}

Clock::Membership::~Membership() {
  if (joined) Clock::Get().Leave();
}

void Clock::Reset(int year, int month, int day, int hour, int minute, int second) {
  std::unique_lock<std::mutex> lock(m_mutex);
  ++m_generation;
  m_participants = 0;
  m_wakeUps.clear();
  m_onSleep = nullptr;
  m_freeFactor = 0;
  struct tm local = record::CalendarTime(year, month, day, hour, minute, second);
  m_runUs = 1000LL * 1000000;
  m_wallOffsetUs = static_cast<long long>(mktime(&local)) * 1000000 - m_runUs;
  Join(lock);
}

void Clock::Join(std::unique_lock<std::mutex>&) {
  Membership& self = t_membership;
  if (self.joined && self.generation == m_generation) return;
  self.joined = true;
  self.generation = m_generation;
  ++m_participants;
  ++m_joins;
  m_changed.notify_all();
}

void Clock::Leave() {
  std::lock_guard<std::mutex> lock(m_mutex);
  Membership& self = t_membership;
  if (self.joined && self.generation == m_generation) --m_participants;
  self.joined = false;
  AdvanceIfAllSleep();
  m_changed.notify_all();
}

void Clock::AdvanceIfAllSleep() {
  if (m_wakeUps.empty() || static_cast<int>(m_wakeUps.size()) < m_participants) return;
  if (*m_wakeUps.begin() > m_runUs) m_runUs = *m_wakeUps.begin();
  m_changed.notify_all();
}

long long Clock::WallMs() {
  std::unique_lock<std::mutex> lock(m_mutex);
  Join(lock);
  return (NowUs() + m_wallOffsetUs) / 1000;
}

long long Clock::RunUs() {
  std::unique_lock<std::mutex> lock(m_mutex);
  Join(lock);
  return NowUs();
}

void Clock::StepWall(long long ms) {
  std::lock_guard<std::mutex> lock(m_mutex);
  m_wallOffsetUs += ms * 1000;
}

void Clock::RunFree(int factor) {
  std::lock_guard<std::mutex> lock(m_mutex);
  m_freeFactor = factor;
  m_freeSince = std::chrono::steady_clock::now();
}

long long Clock::NowUs() const {
  if (m_freeFactor == 0) return m_runUs;
  const auto passed = std::chrono::steady_clock::now() - m_freeSince;
  return m_runUs + std::chrono::duration_cast<std::chrono::microseconds>(passed).count() * m_freeFactor;
}

void Clock::SleepUs(long long us) {
  std::unique_lock<std::mutex> lock(m_mutex);
  Join(lock);
  if (m_freeFactor != 0) {
    const std::chrono::microseconds rest(us / m_freeFactor);
    lock.unlock();
    std::this_thread::sleep_for(rest);
    return;
  }
  if (m_onSleep) {
    const std::function<void()> hook = m_onSleep;
    lock.unlock();
    hook();
    lock.lock();
  }
  const long long wakeUp = m_runUs + us;
  if (m_participants == 1) {
    m_runUs = wakeUp;
    return;
  }
  const auto place = m_wakeUps.insert(wakeUp);
  AdvanceIfAllSleep();
  m_changed.wait(lock, [&] { return m_runUs >= wakeUp; });
  m_wakeUps.erase(place);
}

bool Clock::SleepUntil(const std::function<bool()>& done, long long limitMs) {
  const long long end = RunUs() + limitMs * 1000;
  while (!done()) {
    if (RunUs() >= end) return false;
    Sleep(1);
  }
  return true;
}

bool Clock::WatchUntil(const std::function<bool()>& done, long long limitMs) {
  const long long end = RunUs() + limitMs * 1000;
  const Pause pause;
  while (!done()) {
    std::unique_lock<std::mutex> lock(m_mutex);
    const bool isLate = NowUs() >= end;
    lock.unlock();
    if (isLate) return done();  // all of the time may have passed since it was asked
    std::this_thread::sleep_for(std::chrono::microseconds(200));
  }
  return true;
}

void Clock::OnSleep(std::function<void()> hook) {
  std::lock_guard<std::mutex> lock(m_mutex);
  m_onSleep = std::move(hook);
}

bool Clock::StartThread(const std::function<bool()>& start) {
  int before;
  {
    std::unique_lock<std::mutex> lock(m_mutex);
    Join(lock);
    before = m_joins;
  }
  if (!start()) return false;
  std::unique_lock<std::mutex> lock(m_mutex);
  return m_changed.wait_for(lock, std::chrono::seconds(10), [&] { return m_joins > before; });
}

Clock::Pause::Pause() {
  Clock::Get().Leave();
}

Clock::Pause::~Pause() {
  Clock& clock = Clock::Get();
  std::unique_lock<std::mutex> lock(clock.m_mutex);
  clock.Join(lock);
}

void InstallClock() {
  static const record::ClockSource source = {
      [] {
        const long long ms = Clock::Get().WallMs();
        return record::WallTime{ms / 1000, static_cast<int>(ms % 1000) * 1000};
      },
      [](long long us) { Clock::Get().SleepUs(us); },
  };
  record::SetClockSource(&source);
}

}  // namespace fake
