#include "bench/cost.h"

#include <algorithm>
#include <ctime>

namespace bench {
namespace {

double Seconds(clockid_t clock) {
  struct timespec now = {};
  clock_gettime(clock, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

Cost Now(clockid_t cpuClock) {
  return {Seconds(cpuClock), Seconds(CLOCK_MONOTONIC)};
}

}  // namespace

double MonotonicSeconds() {
  return Seconds(CLOCK_MONOTONIC);
}

Cost& Cost::operator+=(const Cost& other) {
  cpu += other.cpu;
  wall += other.wall;
  return *this;
}

Stopwatch::Stopwatch(Whose whose)
    : m_cpuClock(whose == Whose::kThread ? CLOCK_THREAD_CPUTIME_ID : CLOCK_PROCESS_CPUTIME_ID),
      m_start(Now(m_cpuClock)) {}

Cost Stopwatch::Elapsed() const {
  const Cost now = Now(m_cpuClock);
  return {now.cpu - m_start.cpu, now.wall - m_start.wall};
}

void TakeTurns(int rounds, std::vector<Contender>& contenders) {
  const size_t count = contenders.size();
  for (int round = -1; round < rounds; ++round) {
    for (size_t i = 0; i < count; ++i) {
      Contender& contender = contenders[(i + static_cast<size_t>(round + 1)) % count];
      const Cost cost = contender.pass();
      if (round >= 0) contender.rounds.push_back(cost);
    }
  }
}

double Median(std::vector<double> values) {
  if (values.empty()) return 0;
  std::sort(values.begin(), values.end());
  const size_t middle = values.size() / 2;
  return values.size() % 2 == 1 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

double Percentile(std::vector<double> values, int percent) {
  if (values.empty()) return 0;
  std::sort(values.begin(), values.end());
  return values[(values.size() - 1) * static_cast<size_t>(percent) / 100];
}

Cost MedianCost(const Contender& contender) {
  std::vector<double> cpu;
  std::vector<double> wall;
  for (const Cost& cost : contender.rounds) {
    cpu.push_back(cost.cpu);
    wall.push_back(cost.wall);
  }
  return {Median(cpu), Median(wall)};
}

Cost MedianRatio(const Contender& mine, const Contender& theirs) {
  std::vector<double> cpu;
  std::vector<double> wall;
  for (size_t i = 0; i < mine.rounds.size() && i < theirs.rounds.size(); ++i) {
    cpu.push_back(mine.rounds[i].cpu / theirs.rounds[i].cpu);
    wall.push_back(mine.rounds[i].wall / theirs.rounds[i].wall);
  }
  return {Median(cpu), Median(wall)};
}

}  // namespace bench
