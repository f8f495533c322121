#include "platform/host/upload/upload_queue.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <utility>

#include "base/log.h"
#include "base/text.h"
#include "record/platform.h"

namespace record {
namespace {

constexpr char kWaiting[] = ".wait";
constexpr char kDone[] = ".done";
constexpr char kFailed[] = ".failed";
constexpr char kDamaged[] = ".damaged";
constexpr char kTemporary[] = ".new";
constexpr size_t kEndedKept = 100;
constexpr size_t kLargestJob = 65536;

// False when it cannot be read, by this process or now: that tells nothing of what it holds.
bool ReadSmallFile(const std::string& path, std::string* text) {
  const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOFOLLOW);
  if (file < 0) return false;
  char buffer[4096];
  ssize_t got = 0;
  while (text->size() < kLargestJob && (got = read(file, buffer, sizeof buffer)) > 0)
    text->append(buffer, static_cast<size_t>(got));
  close(file);
  return got >= 0;
}

void SyncPath(const std::string& path) {
  const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (file < 0) return;
  fsync(file);
  close(file);
}

std::string NewId(long long milliseconds) {
  static std::atomic<unsigned> number{0};
  char id[64];
  std::snprintf(id, sizeof id, "%015lld-%d-%06u", milliseconds, static_cast<int>(getpid()), ++number);
  return id;
}

}  // namespace

UploadQueue::UploadQueue(UploadService service, std::string directory, int limit)
    : m_service(service), m_directory(std::move(directory)), m_limit(limit) {}

std::string UploadQueue::PathOf(const std::string& id, const char* state) const {
  return m_directory + "/" + id + state;
}

// Who may read a job learns of servers and users: nobody else's business.
void UploadQueue::MakeDirectory() const {
  const size_t slash = m_directory.rfind('/');
  if (slash != std::string::npos && slash > 0) SafeMakeDir(m_directory.substr(0, slash).c_str());
  if (mkdir(m_directory.c_str(), 0700) != 0 && errno != EEXIST)
    RECORD_LOG("cannot make the upload queue %s, err = %s\n", m_directory.c_str(), std::strerror(errno));
}

std::vector<std::string> UploadQueue::Ids(const char* state) const {
  std::vector<std::string> ids;
  DIR* directory = opendir(m_directory.c_str());
  while (directory != nullptr) {
    const dirent* entry = readdir(directory);
    if (entry == nullptr) break;
    const std::string name = entry->d_name;
    if (EndsWith(name, state)) ids.push_back(name.substr(0, name.size() - std::strlen(state)));
  }
  if (directory != nullptr) closedir(directory);
  std::sort(ids.begin(), ids.end());
  return ids;
}

std::vector<UploadJob> UploadQueue::Jobs(const char* state) const {
  std::vector<UploadJob> jobs;
  for (const std::string& id : Ids(state)) {
    UploadJob job;
    std::string text;
    if (!ReadSmallFile(PathOf(id, state), &text)) continue;
    if (ParseJob(text, &job)) {
      job.id = id;
      job.service = m_service;
      jobs.push_back(std::move(job));
    } else if (state == kWaiting) {
      PutAside(id);
    }
  }
  return jobs;
}

// Such as a power cut leaves. Jobs get their names when they are whole: this one will never be.
void UploadQueue::PutAside(const std::string& id) const {
  const std::string waiting = PathOf(id, kWaiting);
  const std::string damaged = PathOf(id, kDamaged);
  if (rename(waiting.c_str(), damaged.c_str()) != 0) return;
  RECORD_LOG("%s is damaged and tells of no upload: put aside as %s\n", waiting.c_str(), damaged.c_str());
  KeepNewest(kDamaged);
}

void UploadQueue::KeepNewest(const char* state) const {
  const std::vector<std::string> ids = Ids(state);
  for (size_t i = 0; i + kEndedKept < ids.size(); ++i) unlink(PathOf(ids[i], state).c_str());
}

bool UploadQueue::Write(const UploadJob& job) const {
  const std::string text = JobText(job);
  static std::atomic<unsigned> number{0};  // two threads may be at the same job
  const std::string writer = "." + std::to_string(getpid()) + "." + std::to_string(++number);
  const std::string temporary = PathOf(job.id + writer, kTemporary);
  const int file = open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0600);
  if (file < 0) return false;
  const bool whole = write(file, text.data(), text.size()) == static_cast<ssize_t>(text.size());
  close(file);
  if (whole && rename(temporary.c_str(), PathOf(job.id, kWaiting).c_str()) == 0) return true;
  unlink(temporary.c_str());
  return false;
}

std::string UploadQueue::Fullness() const {
  const auto limit = static_cast<size_t>(m_limit);
  // Names alone are quick, and mostly enough.
  if (Ids(kWaiting).size() < limit || Waiting().size() < limit) return "";
  return "the queue is full, " + std::to_string(m_limit) + " uploads wait";
}

std::string UploadQueue::Add(UploadJob job) {
  const std::lock_guard<std::mutex> lock(m_addMutex);
  MakeDirectory();
  const std::string fullness = Fullness();
  if (!fullness.empty()) return fullness;
  job.id = NewId(job.queuedMs);
  return Write(job) ? "" : "the queue " + m_directory + " cannot be written: " + std::strerror(errno);
}

void UploadQueue::Sync() const {
  for (const std::string& id : Ids(kWaiting)) SyncPath(PathOf(id, kWaiting));
  SyncPath(m_directory);
}

std::vector<UploadJob> UploadQueue::Waiting() const {
  return Jobs(kWaiting);
}

std::vector<UploadJob> UploadQueue::Ended(bool done) const {
  return Jobs(done ? kDone : kFailed);
}

bool UploadQueue::Update(const UploadJob& job) const {
  if (Write(job)) return true;
  RECORD_LOG("the queue %s cannot be written\n", m_directory.c_str());
  return false;
}

bool UploadQueue::End(const UploadJob& job, bool done) const {
  const char* state = done ? kDone : kFailed;
  Update(job);
  const std::string waiting = PathOf(job.id, kWaiting);
  const bool waitsNoLonger = rename(waiting.c_str(), PathOf(job.id, state).c_str()) == 0 ||
                             unlink(waiting.c_str()) == 0 ||  // better forgotten than sent for ever
                             errno == ENOENT;
  KeepNewest(state);
  return waitsNoLonger;
}

// What a process left that was killed while it wrote a job; a younger one may be another process's.
void UploadQueue::RemoveRemains() const {
  constexpr time_t kOldSeconds = 60;
  for (const std::string& id : Ids(kTemporary)) {
    struct stat status;
    const std::string path = PathOf(id, kTemporary);
    if (stat(path.c_str(), &status) == 0 && time(nullptr) - status.st_mtime > kOldSeconds) unlink(path.c_str());
  }
}

int UploadQueue::TakeLock() const {
  MakeDirectory();
  const int lock = open((m_directory + "/lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
  if (lock < 0) return -1;
  if (flock(lock, LOCK_EX | LOCK_NB) == 0) {
    RemoveRemains();
    return lock;
  }
  close(lock);
  return -1;
}

}  // namespace record
