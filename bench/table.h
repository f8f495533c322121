// The table that the benchmark prints.
#ifndef BENCH_TABLE_H
#define BENCH_TABLE_H

#include <string>

#include "bench/cost.h"

namespace bench {

enum class Measure { kCpu, kWall };

// At most `limit` by `measure`; 0: shown without a goal.
struct Goal {
  double limit = 0;
  Measure measure = Measure::kCpu;
};

void PrintHeadline(const std::string& text);
// One comparison: "write, tmpfs" "bare writev" and the ratios with their goal. `per` is how many pieces of work
// (frames, seeks, files) a pass does: the absolute cost of one is shown too.
void PrintRatio(const std::string& what, const Contender& mine, const Contender& theirs, double per, Goal goal);
// A figure that is no ratio of two contenders, with its unit.
void PrintFigure(const std::string& what, double value, const std::string& unit, double limit = 0);
void PrintNote(const std::string& text);

int MissedGoals();

}  // namespace bench

#endif
