#include "tools/recordctl/signals.h"

#include <unistd.h>
#include <csignal>

#include <atomic>

#include "tools/recordctl/options.h"

namespace recordctl {
namespace {

std::atomic<int> g_deferrals{0};
std::atomic<bool> g_interrupted{false};
static_assert(std::atomic<int>::is_always_lock_free && std::atomic<bool>::is_always_lock_free);

void OnSignal(int) {
  g_interrupted = true;
  if (g_deferrals == 0) _exit(kInterrupted);
}

void Handle(int signal, void (*handler)(int)) {
  struct sigaction action = {};
  action.sa_handler = handler;
  action.sa_flags = SA_RESTART;
  sigemptyset(&action.sa_mask);
  sigaction(signal, &action, nullptr);
}

}  // namespace

void InstallSignals() {
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) Handle(signal, OnSignal);
  // SIGIO tells of a lease that somebody breaks, see HasWriter.
  for (const int signal : {SIGPIPE, SIGIO}) Handle(signal, SIG_IGN);
}

DeferSignals::DeferSignals() {
  ++g_deferrals;
}

DeferSignals::~DeferSignals() {
  --g_deferrals;
}

bool WasInterrupted() {
  return g_interrupted;
}

}  // namespace recordctl
