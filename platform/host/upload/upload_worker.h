// The thread that sends what waits in one service's queue.
#ifndef PLATFORM_HOST_UPLOAD_UPLOAD_WORKER_H
#define PLATFORM_HOST_UPLOAD_UPLOAD_WORKER_H

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "platform/host/upload/curl_transfer.h"
#include "platform/host/upload/upload_queue.h"

namespace record {

struct RetryPauses {
  int firstMs;
  int lastMs;
  int giveUpSeconds;
};

// When a waiting job is due, wall clock in milliseconds; at most `now` when it is due now. What others failed
// at rests: all that would meet a server that is away, or a login that is refused, wait for the one that found
// out.
long long DueAt(const UploadJob& job, const std::vector<UploadJob>& waiting, const RetryPauses& pauses,
                long long now);

long long WallMs();

class UploadWorker {
 public:
  UploadWorker(UploadQueue& queue, TransferLimits limits, RetryPauses pauses);
  ~UploadWorker();  // breaks off what is being sent, and joins
  UploadWorker(const UploadWorker&) = delete;
  UploadWorker& operator=(const UploadWorker&) = delete;

  void Wake();

 private:
  void Run();
  bool SendNext();  // false when nothing is due
  void Send(UploadJob job);
  void Failed(UploadJob& job, const TransferResult& result);
  void Rest(int milliseconds);

  UploadQueue& m_queue;
  const RetryPauses m_pauses;
  std::atomic<bool> m_stop{false};
  const TransferLimits m_limits;
  std::mutex m_mutex;
  std::condition_variable m_changed;
  bool m_woken = false;         // guarded by m_mutex
  std::string m_syncedId;       // the last job known to be on the medium; the thread's own
  long long m_restUntilMs = 0;  // wall clock; while the queue cannot note when the next attempt is due; likewise
  std::thread m_thread;
};

}  // namespace record

#endif
