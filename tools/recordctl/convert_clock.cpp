#include "tools/recordctl/convert_clock.h"

#include <atomic>
#include <chrono>
#include <thread>

#include "base/clock.h"

namespace recordctl {
namespace {

std::atomic<long long> g_startMs{0};
std::atomic<long long> g_elapsedMs{0};

record::WallTime Wall() {
  const long long ms = g_startMs + g_elapsedMs;
  return {ms / 1000, static_cast<int>(ms % 1000 * 1000)};
}

record::RunTime Run() {
  const long long ms = g_elapsedMs;
  return {static_cast<std::uint32_t>(ms / 1000), static_cast<std::uint32_t>(ms % 1000 * 1000)};
}

void SleepUs(long long microseconds) {
  std::this_thread::sleep_for(std::chrono::microseconds(microseconds));
}

constexpr record::ClockSource kSource = {Wall, SleepUs, Run};

}  // namespace

ConvertClock::ConvertClock(long long startMs) {
  g_startMs = startMs;
  g_elapsedMs = 0;
  record::SetClockSource(&kSource);
}

ConvertClock::~ConvertClock() {
  record::SetClockSource(nullptr);
}

void ConvertClock::SetElapsed(long long ms) {
  if (ms > g_elapsedMs) g_elapsedMs = ms;
}

long long ConvertClock::Elapsed() {
  return g_elapsedMs;
}

}  // namespace recordctl
