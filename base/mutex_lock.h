// Holds a platform mutex for a scope.
#ifndef BASE_MUTEX_LOCK_H
#define BASE_MUTEX_LOCK_H

#include "record/platform.h"

namespace record {

class MutexLock {
 public:
  MutexLock(CMutex& mutex, unsigned line) : m_mutex(mutex) { m_mutex.Lock(line); }
  ~MutexLock() { m_mutex.Unlock(); }
  MutexLock(const MutexLock&) = delete;
  MutexLock& operator=(const MutexLock&) = delete;

 private:
  CMutex& m_mutex;
};

}  // namespace record

#endif
