#include "bench/child.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

namespace bench {
namespace {

double Seconds(const struct timeval& time) {
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
}

int Become(const std::vector<std::string>& words) {
  const int nothing = open("/dev/null", O_RDWR);
  for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) dup2(nothing, stream);
  std::vector<char*> arguments;
  for (const std::string& word : words) arguments.push_back(const_cast<char*>(word.c_str()));
  arguments.push_back(nullptr);
  execvp(arguments[0], arguments.data());
  return 127;
}

ChildUse MustEnd(const char* what, pid_t child) {
  const ChildUse use = FinishChild(child);
  if (use.ok) return use;
  std::fprintf(stderr, "record_bench: %s failed\n", what);
  std::exit(1);
}

}  // namespace

pid_t StartChild(const std::function<int()>& work) {
  std::fflush(stdout);
  const pid_t child = fork();
  if (child == 0) _exit(work());
  return child;
}

pid_t StartProgram(const std::vector<std::string>& words) {
  return StartChild([&] { return Become(words); });
}

ChildUse FinishChild(pid_t child) {
  const Stopwatch watch;
  int status = 0;
  struct rusage usage = {};
  ChildUse use;
  use.ok = wait4(child, &status, 0, &usage) == child && status == 0;
  use.cost = {Seconds(usage.ru_utime) + Seconds(usage.ru_stime), watch.Elapsed().wall};
  use.peakKib = usage.ru_maxrss;
  return use;
}

ChildUse RunChild(const char* what, const std::function<int()>& work) {
  return MustEnd(what, StartChild(work));
}

ChildUse RunProgram(const std::vector<std::string>& words) {
  return MustEnd(words.front().c_str(), StartProgram(words));
}

}  // namespace bench
