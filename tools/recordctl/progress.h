// Signs of life for anything that takes longer than a second: a line that rewrites itself on a terminal, or
// key=value lines once a second for programs.
#ifndef RECORDCTL_PROGRESS_H
#define RECORDCTL_PROGRESS_H

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tools/recordctl/options.h"

namespace recordctl {

// What was asked for with --progress, else a line when stderr is a terminal.
ProgressStyle ChosenProgress(const Options& options);

// Takes a progress line off the terminal, should one stand there.
void ClearProgressLine();

class Progress {
 public:
  using Values = std::vector<std::pair<std::string, std::string>>;

  explicit Progress(ProgressStyle style);
  ~Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  // Whether a second has passed since the last sign (or since the begin): then call Show.
  bool IsDue();
  // `line` is what people read, `values` what programs read.
  void Show(const std::string& line, const Values& values);

 private:
  ProgressStyle m_style;
  std::chrono::steady_clock::time_point m_next;
};

// The same around a call that tells nothing until it returns. Nothing else may be printed while one lives.
class Waiting {
 public:
  // `what` is what people read; programs get the phase and the seconds waited.
  Waiting(const Options& options, std::string what, std::string phase);
  ~Waiting();
  Waiting(const Waiting&) = delete;
  Waiting& operator=(const Waiting&) = delete;

 private:
  void Run();

  const std::string m_what;
  const std::string m_phase;
  Progress m_progress;
  std::mutex m_mutex;
  std::condition_variable m_end;
  bool m_ended = false;  // guarded by m_mutex
  std::thread m_thread;
};

}  // namespace recordctl

#endif
