#include "base/worker_thread.h"

#include <sys/prctl.h>

#include <cerrno>
#include <memory>
#include <utility>

namespace record {
namespace {

thread_local const WorkerThread* t_current = nullptr;

struct Body {
  const WorkerThread* thread;
  const char* name;
  std::function<void()> run;
};

void* RunBody(void* argument) {
  const std::unique_ptr<Body> body(static_cast<Body*>(argument));
  prctl(PR_SET_NAME, body->name);
  t_current = body->thread;
  body->run();
  return nullptr;
}

}  // namespace

WorkerThread::~WorkerThread() {
  Join();
  const std::lock_guard<std::mutex> lock(m_mutex);
  if (m_exists) pthread_detach(m_thread);
}

bool WorkerThread::Start(const char* name, std::function<void()> body) {
  const std::lock_guard<std::mutex> lock(m_mutex);
  auto argument = std::make_unique<Body>(Body{this, name, std::move(body)});
  errno = pthread_create(&m_thread, nullptr, RunBody, argument.get());
  if (errno != 0) return false;
  static_cast<void>(argument.release());  // the thread's
  m_exists = true;
  return true;
}

bool WorkerThread::Exists() {
  const std::lock_guard<std::mutex> lock(m_mutex);
  return m_exists;
}

void WorkerThread::Join() {
  if (IsCurrent()) return;
  const std::lock_guard<std::mutex> lock(m_mutex);
  if (m_exists) pthread_join(m_thread, nullptr);
  m_exists = false;
}

bool WorkerThread::IsCurrent() const {
  return t_current == this;
}

}  // namespace record
