// Ctrl-C, SIGTERM and the end of the terminal.
#ifndef RECORDCTL_SIGNALS_H
#define RECORDCTL_SIGNALS_H

namespace recordctl {

// From now on such a signal ends the program with 130; a reader of stdout that goes away is an error of the
// write instead of a signal.
void InstallSignals();

// While one lives, signals only set a flag, however often they come: a file is open that has to be ended.
class DeferSignals {
 public:
  DeferSignals();
  ~DeferSignals();
  DeferSignals(const DeferSignals&) = delete;
  DeferSignals& operator=(const DeferSignals&) = delete;
};

bool WasInterrupted();

// How often a wait looks for what it waits for, and for such a signal.
constexpr int kPollMs = 5;

}  // namespace recordctl

#endif
