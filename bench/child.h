// Work in a process of its own, so that its CPU time and its memory count apart.
#ifndef BENCH_CHILD_H
#define BENCH_CHILD_H

#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

#include "bench/cost.h"

namespace bench {

struct ChildUse {
  bool ok = false;
  Cost cost;
  long peakKib = 0;  // resident; what it shares with its parent counts too
};

// `work` returns the exit status.
pid_t StartChild(const std::function<int()>& work);
pid_t StartProgram(const std::vector<std::string>& words);  // its streams go nowhere
// Waits for it. The wall time counts from this call.
ChildUse FinishChild(pid_t child);
// Runs it to its end; ends the program when it fails.
ChildUse RunChild(const char* what, const std::function<int()>& work);
ChildUse RunProgram(const std::vector<std::string>& words);

}  // namespace bench

#endif
