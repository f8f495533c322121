// A thread that may be stopped, and whose owner may be destroyed, from anywhere: the thread itself included.
#ifndef BASE_WORKER_THREAD_H
#define BASE_WORKER_THREAD_H

#include <pthread.h>

#include <functional>
#include <mutex>

namespace record {

class WorkerThread {
 public:
  WorkerThread() = default;
  ~WorkerThread();  // joins; on the thread itself lets it go
  WorkerThread(const WorkerThread&) = delete;
  WorkerThread& operator=(const WorkerThread&) = delete;

  // Runs `body` on a thread of that name. What the body owns is destroyed on the thread, behind everything else.
  // False when there is no thread to be had; errno says why. REQUIRES: !Exists()
  bool Start(const char* name, std::function<void()> body);
  bool Exists();  // started and not joined yet, though it may have ended
  // Waits for its end; several threads may. On the thread itself it does nothing.
  void Join();
  bool IsCurrent() const;

 private:
  std::mutex m_mutex;
  bool m_exists = false;
  pthread_t m_thread = {};
};

}  // namespace record

#endif
