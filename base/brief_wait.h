// Waiting for another thread that is about to finish a few instructions.
#ifndef BASE_BRIEF_WAIT_H
#define BASE_BRIEF_WAIT_H

#include <ctime>

namespace record {

// Real sleep and no yield: yielding never lets a thread of lower priority run, and on one core a real-time
// thread would then wait for ever.
inline void BriefWait() {
  const struct timespec rest = {0, 50000};
  nanosleep(&rest, nullptr);
}

}  // namespace record

#endif
