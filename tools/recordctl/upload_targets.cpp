#include "tools/recordctl/upload_targets.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "base/clock.h"
#include "tools/recordctl/output.h"
#include "tools/recordctl/signals.h"

namespace recordctl {
namespace {

constexpr std::chrono::seconds kPatienceAfterInterrupt{10};

struct Scheme {
  const char* name;
  bool isMail;
  int flags;
};
constexpr Scheme kSchemes[] = {
    {"ftp", false, 0},          {"ftpes", false, UPLOAD_TLS},         {"ftps", false, UPLOAD_TLS_IMPLICIT},
    {"smtp", true, UPLOAD_TLS}, {"smtps", true, UPLOAD_TLS_IMPLICIT}, {"smtp-plain", true, 0},
};

struct Address {
  std::string host;
  int port = 0;
  std::string user;
  std::string path;
  int flags = 0;
};

const Scheme* FindScheme(const std::string& name, bool isMail) {
  for (const Scheme& scheme : kSchemes) {
    if (name == scheme.name && scheme.isMail == isMail) return &scheme;
  }
  return nullptr;
}

// scheme://[user@]host[:port][/path]. The complaint never shows the URL: a password may stand in it.
bool ParseUrl(const std::string& url, bool isMail, Address& address) {
  const std::string option = isMail ? "--smtp" : "--ftp";
  const size_t colon = url.find("://");
  const Scheme* scheme = colon == std::string::npos ? nullptr : FindScheme(url.substr(0, colon), isMail);
  if (scheme == nullptr) {
    Say(option +
        " needs a URL: " + (isMail ? "smtp://, smtps:// or smtp-plain://" : "ftp://, ftpes:// or ftps://"));
    return false;
  }
  const std::string rest = url.substr(colon + 3);
  const size_t slash = std::min(rest.find('/'), rest.size());
  std::string host = rest.substr(0, slash);
  address.path = rest.substr(std::min(slash + 1, rest.size()));
  address.flags = scheme->flags;
  const size_t at = host.rfind('@');
  if (at != std::string::npos) {
    address.user = host.substr(0, at);
    host.erase(0, at + 1);
  }
  if (address.user.find(':') != std::string::npos) {
    Say(option + ": a password on the command line is everybody's to read; see " + option + "-password-file");
    return false;
  }
  const size_t portColon = host.rfind(':');
  const bool hasPort = portColon != std::string::npos && host.find(']', portColon) == std::string::npos;
  address.port = hasPort ? atoi(host.c_str() + portColon + 1) : 0;
  address.host = host.substr(0, hasPort ? portColon : host.size());
  if (!address.host.empty() && (!hasPort || (address.port > 0 && address.port <= 65535))) return true;
  Say(option + ": there is no server in that URL");
  return false;
}

template <size_t kSize>
bool Set(char (&field)[kSize], const std::string& text) {
  if (text.size() >= kSize) {
    Say("'" + text + "' is too long for an upload");
    return false;
  }
  std::memcpy(field, text.c_str(), text.size() + 1);
  return true;
}

// Where the password is: the file, or the environment.
bool SetSecret(char (&field)[256], const std::string& user, const std::string& file, const char* variable) {
  if (!file.empty()) {
    std::error_code ignored;
    return Set(field, "file:" + std::filesystem::absolute(file, ignored).string());
  }
  if (std::getenv(variable) != nullptr) return Set(field, std::string("env:") + variable);
  if (user.empty()) return true;
  Say(std::string("no password: name a file that holds it, or set ") + variable);
  return false;
}

template <typename Server>
bool SetServer(Server& server, const Address& address, bool unverified) {
  server.port = address.port;
  server.flags = address.flags | (unverified ? UPLOAD_UNVERIFIED : 0);
  return Set(server.host, address.host) && Set(server.user, address.user);
}

struct Counts {
  int due = 0;
  int waiting = 0;
};

Counts CountUploads() {
  Counts counts;
  HostUploadList(
      [](void* context, const HostUpload* upload) {
        auto* all = static_cast<Counts*>(context);
        all->due += upload->state == HOST_UPLOAD_DUE ? 1 : 0;
        all->waiting += upload->state == HOST_UPLOAD_WAITING ? 1 : 0;
      },
      &counts);
  return counts;
}

}  // namespace

void AddCertificateOptions(CLI::App& command, UploadRequest& request) {
  command.add_option("--upload-ca", request.caFile, "Certificates to trust, PEM (default: the system's)")
      ->check(CLI::ExistingFile);
}

void AddUploadOptions(CLI::App& command, UploadRequest& request) {
  command.add_option("--ftp", request.ftp,
                     "Send finished files to ftp://, ftpes:// (AUTH TLS) or ftps://[USER@]HOST[:PORT][/DIR]");
  command.add_option("--ftp-password-file", request.ftpPasswordFile,
                     "Its first line is the password (default: $RECORD_FTP_PASSWORD)");
  command.add_option("--email", request.recipients, "Send finished files to these addresses, comma between them");
  command.add_option("--smtp", request.smtp,
                     "Mail server: smtp:// (STARTTLS), smtps:// or smtp-plain://[USER@]HOST[:PORT]");
  command.add_option("--smtp-password-file", request.smtpPasswordFile,
                     "Its first line is the password (default: $RECORD_SMTP_PASSWORD)");
  command.add_option("--email-from", request.sender, "Sender of the mails (default: the first of --email)");
  command.add_flag("--upload-unverified", request.unverified, "Accept any certificate of these servers");
  AddCertificateOptions(command, request);
}

UploadTargets::~UploadTargets() {
  if (m_subscription > 0) HostAlarmUnsubscribe(m_subscription);
}

bool UploadTargets::Understand(const UploadRequest& request) {
  m_caFile = request.caFile;
  if (request.recipients.empty() != request.smtp.empty()) {
    Say("--email and --smtp need each other");
    return false;
  }
  if (!request.ftp.empty()) {
    Address address;
    m_hasFtp = ParseUrl(request.ftp, false, address) && SetServer(m_ftp, address, request.unverified) &&
               Set(m_ftp.baseDirectory, address.path) &&
               SetSecret(m_ftp.password, address.user, request.ftpPasswordFile, "RECORD_FTP_PASSWORD");
    if (!m_hasFtp) return false;
  }
  if (request.smtp.empty()) return true;
  Address address;
  const std::string first = request.recipients.substr(0, request.recipients.find(','));
  m_hasEmail = ParseUrl(request.smtp, true, address) && SetServer(m_email, address, request.unverified) &&
               Set(m_email.recipients, request.recipients) &&
               Set(m_email.sender, request.sender.empty() ? first : request.sender) &&
               SetSecret(m_email.password, address.user, request.smtpPasswordFile, "RECORD_SMTP_PASSWORD");
  return m_hasEmail;
}

void UploadTargets::Start() {
  if (m_hasFtp || m_hasEmail) StartAlways();
}

void UploadTargets::StartAlways() {
  HostUploadOptions options = {};
  options.caFile = m_caFile.empty() ? nullptr : m_caFile.c_str();
  HostUploadConfigure(&options);
  m_subscription = HostAlarmSubscribe(Hear, this);
  HostUploadStart();
}

// Behind the directory that was named every device has one of its own.
void UploadTargets::AttachTo(CTaskbase& task) {
  GetSN(m_serial, sizeof m_serial);
  task.SetIpAddr(m_serial);
  if (m_hasFtp) task.SetFtpParam(&m_ftp);
  if (m_hasEmail) task.SetEmailParam(&m_email);
}

void UploadTargets::Hear(void* context, const HostAlarm* alarm) {
  auto* self = static_cast<UploadTargets*>(context);
  if (alarm->kind != HOST_ALARM_UPLOAD) return;
  if (alarm->code == HOST_UPLOAD_GIVEN_UP) ++self->m_givenUp;
  if (alarm->code == HOST_UPLOAD_REFUSED) ++self->m_refused;
  const std::lock_guard<std::mutex> lock(self->m_mutex);
  self->m_heard.emplace_back(alarm->text);
}

void UploadTargets::Tell() {
  std::vector<std::string> heard;
  {
    const std::lock_guard<std::mutex> lock(m_mutex);
    heard.swap(m_heard);
  }
  for (const std::string& text : heard) Say(Printable(text));
}

bool UploadTargets::AwaitAttempts(Progress& progress) {
  if (m_subscription == 0) return true;
  // A second Ctrl-C cannot be told from the first: who has ended a recording that way waits for a while only.
  const bool wasInterrupted = WasInterrupted();
  const auto until = std::chrono::steady_clock::now() + kPatienceAfterInterrupt;
  const auto waits = [&] { return wasInterrupted ? std::chrono::steady_clock::now() < until : !WasInterrupted(); };
  Counts counts = CountUploads();
  for (; counts.due > 0 && waits(); counts = CountUploads()) {
    Tell();
    if (progress.IsDue())
      progress.Show("uploading, files left: " + std::to_string(counts.due),
                    {{"phase", "uploading"}, {"left", std::to_string(counts.due)}});
    record::SleepMs(kPollMs);
  }
  HostUploadStop();
  Tell();
  const int left = counts.due + counts.waiting;
  if (left > 0) Say(std::to_string(left) + " uploads wait in the queue: see recordctl uploads");
  return left == 0 && m_givenUp == 0;
}

}  // namespace recordctl
