// Uploads as the library and the application see them.
#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <memory>
#include <mutex>

#include "base/log.h"
#include "platform/host/alarms.h"
#include "platform/host/upload/upload_secret.h"
#include "platform/host/upload/upload_worker.h"
#include "record/storage.h"
#include "record_host/host.h"

namespace record {
namespace {

constexpr const char* kServiceNames[kUploadServices] = {"ftp", "email"};

struct Settings {
  std::string directory;  // "": below the device root
  TransferLimits limits = {10000, 30000, "", nullptr};
  RetryPauses pauses = {10000, 600000, 3 * 86400};
  int limit = 200;
};

struct Service {
  std::unique_ptr<UploadQueue> queue;
  std::unique_ptr<UploadWorker> worker;  // ends before its queue
};

struct Uploads {
  std::mutex mutex;  // guards the rest; held for quick steps
  Settings settings;
  std::array<Service, kUploadServices> services;
  bool endsAtExit = false;
};

Uploads& All() {
  static auto* uploads = new Uploads;  // threads may outlive main
  return *uploads;
}

template <typename Use>
int Guarded(const Use& use) {
  try {
    return use();
  } catch (const std::exception& error) {  // no memory, no thread
    RECORD_LOG("upload: %s\n", error.what());
    return -1;
  }
}

std::unique_ptr<UploadQueue> OpenQueue(const Uploads& uploads, UploadService service) {
  const std::string& directory = uploads.settings.directory;
  const std::string parent = directory.empty() ? DevicePath("/var/lib/librecord/uploads") : directory;
  return std::make_unique<UploadQueue>(service, parent + "/" + kServiceNames[static_cast<int>(service)],
                                       uploads.settings.limit);
}

// The service with its queue. REQUIRES: the lock, as below.
Service& Opened(Uploads& uploads, UploadService which) {
  Service& service = uploads.services[static_cast<size_t>(which)];
  if (service.queue == nullptr) service.queue = OpenQueue(uploads, which);
  return service;
}

// The service with its thread running, which looks for work now.
void Wake(Uploads& uploads, UploadService which) {
  Service& service = Opened(uploads, which);
  if (service.worker == nullptr)
    service.worker =
        std::make_unique<UploadWorker>(*service.queue, uploads.settings.limits, uploads.settings.pauses);
  // Before the libraries that a transfer uses are taken down.
  if (!uploads.endsAtExit) std::atexit(HostUploadStop);
  uploads.endsAtExit = true;
  service.worker->Wake();
}

template <size_t kSize>
std::string Text(const char (&field)[kSize]) {
  return std::string(field, strnlen(field, kSize));
}

// Would end a command or a header, and begin another one.
bool HasControl(const std::string& text) {
  return std::any_of(text.begin(), text.end(),
                     [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7f; });
}

template <typename Server>
UploadJob JobFor(UploadService service, const Server& server) {
  UploadJob job;
  job.service = service;
  job.host = Text(server.host);
  job.port = server.port;
  job.flags = server.flags;
  job.user = Text(server.user);
  job.secret = Text(server.password);
  return job;
}

UploadJob JobFor(const FtpServer& server) {
  return JobFor(UploadService::kFtp, server);
}

UploadJob JobFor(const SmtpServerList& server) {
  UploadJob job = JobFor(UploadService::kEmail, server);
  job.sender = Text(server.sender);
  job.recipients = Text(server.recipients);
  return job;
}

// "" or what is wrong with the server.
std::string Complaint(const UploadJob& job) {
  if (job.host.empty()) return "no server is named";
  if (job.host.find_first_of("/@?#% ") != std::string::npos) return "the server's name makes no sense";
  if (job.port < 0 || job.port > 65535) return "the server's port makes no sense";
  if (!IsSecretReference(job.secret)) return "a password has to be told as file:PATH or env:NAME";
  for (const std::string* text : {&job.host, &job.user, &job.name, &job.remoteDirectory, &job.remoteName,
                                  &job.sender, &job.recipients, &job.secret}) {
    if (HasControl(*text)) return "control characters in a name";
  }
  if (job.service == UploadService::kEmail && (job.sender.empty() || job.recipients.empty()))
    return "a mail needs a sender and recipients";
  return "";
}

void TellRefused(const std::string& what, const std::string& why) {
  const std::string text = what + " is not uploaded: " + why;
  RECORD_LOG("%s\n", text.c_str());
  RaiseAlarm(HOST_ALARM_UPLOAD, HOST_UPLOAD_REFUSED, 0, 0, text);
}

// Who asks has a file to send, and hears "no" without a reason.
int Can(const UploadJob& job) {
  std::string error = Complaint(job);
  if (error.empty()) {
    Uploads& uploads = All();
    const std::lock_guard<std::mutex> lock(uploads.mutex);
    // Not kept when there was none: with the first file come the settings of that time.
    const Service& service = uploads.services[static_cast<size_t>(job.service)];
    error = service.queue != nullptr ? service.queue->Fullness() : OpenQueue(uploads, job.service)->Fullness();
  }
  if (error.empty()) return 1;
  TellRefused(std::string("a file (") + kServiceNames[static_cast<int>(job.service)] + ")", error);
  return 0;
}

int Take(UploadJob job) {
  job.queuedMs = WallMs();
  std::string error = Complaint(job);
  if (error.empty()) {
    Uploads& uploads = All();
    const std::lock_guard<std::mutex> lock(uploads.mutex);
    error = Opened(uploads, job.service).queue->Add(job);
    // In the queue it is safe: with no thread to be had now, the next file's will send it.
    if (error.empty()) Guarded([&] { return Wake(uploads, job.service), 0; });
  }
  if (error.empty()) return 0;
  TellRefused(job.name, error);
  return -1;
}

// Relative to where the login leads, unless the base says otherwise: an empty base leaves a '/' in front.
std::string RemoteDirectory(const FtpServer& server, const std::string& directory) {
  if (server.baseDirectory[0] == '/') return directory;
  return directory.substr(std::min(directory.find_first_not_of('/'), directory.size()));
}

HostUpload Shown(const UploadJob& job, int state, long long nextMs, const std::string& path,
                 const std::string& target) {
  return {state, path.c_str(), target.c_str(), job.attempts, job.queuedMs, nextMs, job.error.c_str()};
}

void List(const Settings& settings, const UploadQueue& queue, void (*visit)(void*, const HostUpload*),
          void* context) {
  const auto show = [&](const UploadJob& job, int state, long long nextMs) {
    const std::string path = job.Path();
    const std::string target = job.Target();
    const HostUpload shown = Shown(job, state, nextMs, path, target);
    visit(context, &shown);
  };
  for (const bool done : {true, false}) {
    for (const UploadJob& job : queue.Ended(done))
      show(job, done ? HOST_UPLOAD_SENT : HOST_UPLOAD_FAILED, job.nextMs);
  }
  const std::vector<UploadJob> waiting = queue.Waiting();
  const long long now = WallMs();
  for (const UploadJob& job : waiting) {
    const long long due = DueAt(job, waiting, settings.pauses, now);
    show(job, due <= now ? HOST_UPLOAD_DUE : HOST_UPLOAD_WAITING, due);
  }
}

}  // namespace
}  // namespace record

using record::UploadJob;

int CanFtpFile(FtpServer* server) {
  return server == nullptr ? 0
                           : std::max(record::Guarded([&] { return record::Can(record::JobFor(*server)); }), 0);
}

int CanEmailFile(SmtpServerList* servers) {
  return servers == nullptr ? 0
                            : std::max(record::Guarded([&] { return record::Can(record::JobFor(*servers)); }), 0);
}

int FtpOneFile(FtpServer* server, const char* directory, const char* name, const char* remoteDirectory,
               const char* remoteName) {
  if (server == nullptr) return -1;
  return record::Guarded([&] {
    UploadJob job = record::JobFor(*server);
    job.directory = directory;
    job.name = name;
    job.remoteDirectory = record::RemoteDirectory(*server, remoteDirectory);
    job.remoteName = remoteName;
    return record::Take(job);
  });
}

int EmailOneFile(SmtpServerList* servers, int /*flags*/, const char* directory, const char* name,
                 const char* text) {
  if (servers == nullptr) return -1;
  return record::Guarded([&] {
    UploadJob job = record::JobFor(*servers);
    job.directory = directory;
    job.name = name;
    job.text = text != nullptr ? text : "";
    return record::Take(job);
  });
}

int HostUploadConfigure(const HostUploadOptions* options) {
  if (options == nullptr) return -1;
  const auto either = [](int value, int usual) { return value > 0 ? value : usual; };
  const record::Settings usual;
  record::Settings settings;
  if (options->directory != nullptr) settings.directory = options->directory;
  if (options->caFile != nullptr) settings.limits.caFile = options->caFile;
  settings.limits.connectTimeoutMs = either(options->connectTimeoutMs, usual.limits.connectTimeoutMs);
  settings.limits.silenceTimeoutMs = either(options->silenceTimeoutMs, usual.limits.silenceTimeoutMs);
  settings.pauses = {either(options->firstRetryMs, usual.pauses.firstMs),
                     either(options->lastRetryMs, usual.pauses.lastMs),
                     either(options->giveUpSeconds, usual.pauses.giveUpSeconds)};
  settings.limit = either(options->limit, usual.limit);
  record::Uploads& uploads = record::All();
  const std::lock_guard<std::mutex> lock(uploads.mutex);
  uploads.settings = settings;
  return 0;
}

int HostUploadStart(void) {
  return record::Guarded([] {
    record::Uploads& uploads = record::All();
    const std::lock_guard<std::mutex> lock(uploads.mutex);
    for (const auto service : {record::UploadService::kFtp, record::UploadService::kEmail})
      record::Wake(uploads, service);
    return 0;
  });
}

void HostUploadStop(void) {
  std::array<record::Service, record::kUploadServices> ended;  // without the lock: an alarm's receiver may need it
  record::Uploads& uploads = record::All();
  const std::lock_guard<std::mutex> lock(uploads.mutex);
  ended.swap(uploads.services);
}

int HostUploadRetryNow(void) {
  return record::Guarded([] {
    record::Uploads& uploads = record::All();
    const std::lock_guard<std::mutex> lock(uploads.mutex);
    for (const auto service : {record::UploadService::kFtp, record::UploadService::kEmail}) {
      const auto queue = record::OpenQueue(uploads, service);
      for (UploadJob& job : queue->Waiting()) {
        if (job.nextMs == 0) continue;  // may be ending just now
        job.nextMs = 0;
        job.obstacle = record::Obstacle::kNone;
        queue->Update(job);
      }
    }
    for (const record::Service& service : uploads.services) {
      if (service.worker != nullptr) service.worker->Wake();
    }
    return 0;
  });
}

int HostUploadList(void (*visit)(void* context, const HostUpload* upload), void* context) {
  if (visit == nullptr) return -1;
  return record::Guarded([&] {
    record::Settings settings;
    std::array<std::unique_ptr<record::UploadQueue>, record::kUploadServices> queues;
    {
      record::Uploads& uploads = record::All();
      const std::lock_guard<std::mutex> lock(uploads.mutex);
      settings = uploads.settings;
      for (int i = 0; i < record::kUploadServices; ++i)
        queues[static_cast<size_t>(i)] = record::OpenQueue(uploads, static_cast<record::UploadService>(i));
    }
    for (const auto& queue : queues) record::List(settings, *queue, visit, context);
    return 0;
  });
}
