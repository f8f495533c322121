// Where finished files are sent: the options that say so, and what becomes of it while a command runs.
#ifndef RECORDCTL_UPLOAD_TARGETS_H
#define RECORDCTL_UPLOAD_TARGETS_H

#include <atomic>
#include <mutex>
#include <string>
#include <vector>

#include "record/task.h"
#include "record_host/host.h"
#include "tools/recordctl/options.h"
#include "tools/recordctl/progress.h"

namespace recordctl {

struct UploadRequest {
  std::string ftp;   // URL
  std::string smtp;  // URL
  std::string recipients;
  std::string sender;
  std::string ftpPasswordFile;
  std::string smtpPasswordFile;
  std::string caFile;
  bool unverified = false;
};

void AddUploadOptions(CLI::App& command, UploadRequest& request);
// For the commands that only send: whom to trust.
void AddCertificateOptions(CLI::App& command, UploadRequest& request);

class UploadTargets {
 public:
  UploadTargets() = default;
  ~UploadTargets();
  UploadTargets(const UploadTargets&) = delete;
  UploadTargets& operator=(const UploadTargets&) = delete;

  // False, with a message, when an option makes no sense.
  bool Understand(const UploadRequest& request);
  // Once the root is set: begins to send what waits from earlier, when there are targets.
  void Start();
  void StartAlways();

  void AttachTo(CTaskbase& task);
  // Passes on what was heard of uploads since the last call.
  void Tell();
  // Until every upload was tried, or somebody loses patience. True when none is left waiting or was given up.
  bool AwaitAttempts(Progress& progress);
  // Whether a file did not come into the queue: nobody will ever send it.
  bool HasRefused() const { return m_refused > 0; }

 private:
  static void Hear(void* context, const HostAlarm* alarm);

  std::string m_caFile;
  bool m_hasFtp = false;
  bool m_hasEmail = false;
  FtpServer m_ftp = {};
  SmtpServerList m_email = {};
  char m_serial[32] = {};
  int m_subscription = 0;
  std::atomic<int> m_givenUp{0};
  std::atomic<int> m_refused{0};
  std::mutex m_mutex;
  std::vector<std::string> m_heard;  // guarded by m_mutex
};

}  // namespace recordctl

#endif
