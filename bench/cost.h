// What a piece of work costs, and how two ways of doing the same are compared.
//
// Machines differ by a tenth from run to run, and other programs come and go: a figure alone says little. So
// everything that is compared runs in turns, round by round, and what counts is the median over the rounds of
// the ratio within a round.
#ifndef BENCH_COST_H
#define BENCH_COST_H

#include <ctime>
#include <functional>
#include <string>
#include <vector>

namespace bench {

struct Cost {
  double cpu = 0;   // seconds
  double wall = 0;  // seconds

  Cost& operator+=(const Cost& other);
};

double MonotonicSeconds();

enum class Whose { kThread, kProcess };

// CPU time, of the calling thread or of all of them, and wall time since the construction.
class Stopwatch {
 public:
  explicit Stopwatch(Whose whose = Whose::kThread);
  Cost Elapsed() const;

 private:
  clockid_t m_cpuClock;
  Cost m_start;
};

// One way of doing it. `pass` prepares, does the work, cleans up, and returns what the work alone cost.
struct Contender {
  std::string name;
  std::function<Cost()> pass;
  std::vector<Cost> rounds = {};
};

// Every contender once a round; who begins changes from round to round. One more round, not counted, in front.
void TakeTurns(int rounds, std::vector<Contender>& contenders);

double Median(std::vector<double> values);
// The value that so many per cent of them do not exceed.
double Percentile(std::vector<double> values, int percent);
Cost MedianCost(const Contender& contender);
// Median over the rounds of `mine` / `theirs`, CPU and wall apart.
Cost MedianRatio(const Contender& mine, const Contender& theirs);

}  // namespace bench

#endif
