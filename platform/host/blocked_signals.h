// No signal is handled on the threads that the host starts: those belong to the application's.
#ifndef PLATFORM_HOST_BLOCKED_SIGNALS_H
#define PLATFORM_HOST_BLOCKED_SIGNALS_H

#include <pthread.h>
#include <signal.h>

namespace record {

// Blocks all signals of the calling thread, and so of those that it starts, for as long as one lives.
class AllSignalsBlocked {
 public:
  AllSignalsBlocked() {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &m_before);
  }
  ~AllSignalsBlocked() { pthread_sigmask(SIG_SETMASK, &m_before, nullptr); }
  AllSignalsBlocked(const AllSignalsBlocked&) = delete;
  AllSignalsBlocked& operator=(const AllSignalsBlocked&) = delete;

 private:
  sigset_t m_before;
};

}  // namespace record

#endif
