#include "platform/host/upload/upload_worker.h"

#include <sys/prctl.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <utility>

#include "base/log.h"
#include "platform/host/alarms.h"
#include "platform/host/blocked_signals.h"
#include "record_host/host.h"

namespace record {
namespace {

constexpr int kLookMs = 1000;       // other processes put jobs in, too
constexpr int kLeastAttempts = 10;  // before one is given up
constexpr int kMostRefusals = 3;    // a server's settings are mended now and then, but not for days

TransferLimits WithStop(TransferLimits limits, const std::atomic<bool>* stop) {
  limits.stop = stop;
  return limits;
}

void Tell(int outcome, const UploadJob& job, int nextSeconds, const std::string& text) {
  RECORD_LOG("%s\n", text.c_str());
  RaiseAlarm(HOST_ALARM_UPLOAD, outcome, job.attempts, nextSeconds, text);
}

}  // namespace

long long WallMs() {
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  return std::chrono::duration_cast<std::chrono::milliseconds>(now).count();
}

long long DueAt(const UploadJob& job, const std::vector<UploadJob>& waiting, const RetryPauses& pauses,
                long long now) {
  // Further away than any pause: the clock was set back.
  const auto dueAt = [&](const UploadJob& each) { return each.nextMs > now + pauses.lastMs ? now : each.nextMs; };
  long long due = dueAt(job);
  for (const UploadJob& other : waiting) {
    if (job.MeetsObstacleOf(other)) due = std::max(due, dueAt(other));
  }
  return due;
}

UploadWorker::UploadWorker(UploadQueue& queue, TransferLimits limits, RetryPauses pauses)
    : m_queue(queue), m_pauses(pauses), m_limits(WithStop(std::move(limits), &m_stop)) {
  const AllSignalsBlocked blocked;  // SIGPIPE, too: a server that hangs up is an error of the call
  m_thread = std::thread([this] { Run(); });
}

UploadWorker::~UploadWorker() {
  m_stop = true;
  Wake();
  m_thread.join();
}

void UploadWorker::Wake() {
  const std::lock_guard<std::mutex> lock(m_mutex);
  m_woken = true;
  m_changed.notify_all();
}

void UploadWorker::Rest(int milliseconds) {
  std::unique_lock<std::mutex> lock(m_mutex);
  m_changed.wait_for(lock, std::chrono::milliseconds(milliseconds), [this] { return m_woken; });
  m_woken = false;
}

void UploadWorker::Run() {
  prctl(PR_SET_NAME, "Upload");
  int lock = -1;
  while (!m_stop) {
    if (lock < 0) lock = m_queue.TakeLock();
    if (lock < 0 || !SendNext()) Rest(std::min(kLookMs, m_pauses.firstMs));
  }
  if (lock >= 0) close(lock);
}

bool UploadWorker::SendNext() {
  const std::vector<UploadJob> waiting = m_queue.Waiting();
  if (!waiting.empty() && waiting.back().id > m_syncedId) {
    m_queue.Sync();
    m_syncedId = waiting.back().id;
  }
  const long long now = WallMs();
  if (now < m_restUntilMs && m_restUntilMs <= now + m_pauses.lastMs) return false;
  for (const UploadJob& job : waiting) {
    if (DueAt(job, waiting, m_pauses, now) > now) continue;
    Send(job);
    return true;
  }
  return false;
}

void UploadWorker::Send(UploadJob job) {
  const TransferResult result =
      job.service == UploadService::kFtp ? SendByFtp(job, m_limits) : SendByEmail(job, m_limits);
  if (!result.done && m_stop) return;  // broken off by us: as if it had not been tried
  if (!result.done) return Failed(job, result);
  job.nextMs = WallMs();
  if (!m_queue.End(job, true)) m_restUntilMs = job.nextMs + m_pauses.lastMs;
  Tell(HOST_UPLOAD_DONE, job, 0, job.name + " is uploaded: " + job.Target());
}

void UploadWorker::Failed(UploadJob& job, const TransferResult& result) {
  const long long now = WallMs();
  ++job.attempts;
  job.error = result.error;
  job.obstacle = result.obstacle;
  const bool isOld = job.attempts >= kLeastAttempts && now - job.queuedMs > m_pauses.giveUpSeconds * 1000LL;
  if (result.refused) job.refusals = std::max(job.refusals, 0) + 1;
  if (result.forGood || isOld || job.refusals >= kMostRefusals) {
    job.nextMs = now;
    if (!m_queue.End(job, false)) m_restUntilMs = now + m_pauses.lastMs;
    return Tell(HOST_UPLOAD_GIVEN_UP, job, 0, job.name + " is given up, " + job.Target() + ": " + job.error);
  }
  const int doublings = std::min(job.attempts - 1, 20);
  // To be refused soon again helps nobody.
  const long long doubled = static_cast<long long>(m_pauses.firstMs) << doublings;
  const long long pause = result.refused ? m_pauses.lastMs : std::min<long long>(doubled, m_pauses.lastMs);
  job.nextMs = now + pause;
  if (!m_queue.Update(job)) m_restUntilMs = job.nextMs;
  const int seconds = static_cast<int>((pause + 999) / 1000);
  Tell(HOST_UPLOAD_RETRY, job, seconds,
       job.name + " is not uploaded yet, " + job.Target() + ": " + job.error + "; tried again in " +
           std::to_string(seconds) + " s");
}

}  // namespace record
