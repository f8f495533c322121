#include "record/photo_run.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "base/log.h"
#include "base/mutex_lock.h"
#include "record/platform.h"
#include "storage/file_syncer.h"
#include "storage/layout.h"

namespace record {
namespace {

constexpr int kWaitStepMs = 50;  // how long a stop may go unnoticed
constexpr int kFileMode = 0777;  // as record files have it

// Creates the picture's file under the first name from `number` on that nobody has. Its descriptor, or -1.
int TakeName(const std::string& directory, const struct tm& taken, int number, std::string& name) {
  constexpr int kNamesToTry = 1000;
  int file = -1;
  for (int n = number; n < number + kNamesToTry; ++n) {
    name = PictureFileName(taken, n);
    file = open(JoinPath(directory, name).c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, kFileMode);
    if (file >= 0 || errno != EEXIST) break;
  }
  return file;
}

// 0, or the errno of what failed. On the medium when it returns.
int WriteWhole(int file, const unsigned char* data, size_t length) {
  while (length > 0) {
    const ssize_t written = write(file, data, length);
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return written < 0 ? errno : ENOSPC;
    data += written;
    length -= static_cast<size_t>(written);
  }
  return fsync(file) == 0 ? 0 : errno;
}

}  // namespace

PhotoRun::PhotoRun(CPhotoTask& task) : m_task(task), m_begin(RunNow()) {}

void PhotoRun::Run() {
  const PHOTO_TASK_PARAM& param = m_task.m_param;
  for (int number = 1; number <= param.count; ++number) {
    if (!WaitUntil((number - 1) * 1000LL * param.interval)) break;
    TakeOne(number);
  }
  m_task.m_running = 0;
}

bool PhotoRun::WaitUntil(long long dueMs) {
  while (m_task.m_running != 0) {
    const long long left = dueMs - ElapsedMs(m_begin, RunNow());
    if (left <= 0) return true;
    SleepMs(static_cast<int>(std::min<long long>(left, kWaitStepMs)));
  }
  return false;
}

void PhotoRun::TakeOne(int number) {
  const PHOTO_TASK_PARAM& param = m_task.m_param;
  const bool hadStorage = m_hasStorage;
  m_hasStorage = m_task.ChooseMedium();
  if (!m_hasStorage) {
    if (hadStorage) m_task.AlarmNoStorage(m_task.m_logPrefix);
    return Fail(number, "no storage");
  }
  JpegPicture picture = {};
  const int result = TakeJpegPicture(param.stream, param.width, param.height, param.quality, &picture);
  if (result < 0 || picture.data == nullptr || picture.length <= 0) return Fail(number, "no picture");
  const std::string directory =
      m_task.m_storageBase[0] != '\0' ? m_task.GetStorageBase() : m_task.GetNetworkBase();
  m_taken = LocalNow();
  const std::string error = Store(number, directory, picture);
  if (!error.empty()) return Fail(number, error.c_str());
  HandOver(number, directory);
  const std::string path = JoinPath(directory, m_name);
  RECORD_LOG("picture %d of %d: %s, %d bytes\n\n", number, param.count, path.c_str(), picture.length);
  m_task.PictureStored(number, path.c_str());
}

// "" or why not. What cannot be stored whole leaves nothing behind.
std::string PhotoRun::Store(int number, const std::string& directory, const JpegPicture& picture) {
  const MutexLock lock(m_task.m_mutex, __LINE__);
  m_task.SetLocalFileName(PictureFileName(m_taken, number).c_str());  // in use from before it is there
  const int file = TakeName(directory, m_taken, number, m_name);
  const std::string path = JoinPath(directory, m_name);
  int error = file < 0 ? errno : 0;
  if (file >= 0) {
    m_task.SetLocalFileName(m_name.c_str());
    error = WriteWhole(file, picture.data, static_cast<size_t>(picture.length));
    close(file);
    if (error == 0) FileSyncer::SyncNeighbours(path);
    if (error != 0) unlink(path.c_str());
  }
  m_task.SetLocalFileName("");
  return error == 0 ? "" : path + ": " + std::strerror(error);
}

void PhotoRun::HandOver(int number, const std::string& directory) {
  const std::string network = m_task.GetNetworkBase();
  if (!network.empty() && network != directory) {
    const std::string command = CopyWords(directory, m_name, network, m_name) + " &";
    RECORD_LOG("Copy local to network, cmd=%s.\n\n", command.c_str());
    mysystem(command.c_str());
  }
  const char* from = directory.c_str();
  if (m_task.m_ftp != nullptr) {
    if (CanFtpFile(m_task.m_ftp) > 0)
      m_task.FtpFile(from, m_name.c_str(), m_taken, m_name.c_str());
    else
      RECORD_LOG("%s is not uploaded: the platform takes no file for FTP\n\n", m_name.c_str());
  }
  if (m_task.m_email == nullptr) return;
  if (CanEmailFile(m_task.m_email) <= 0) {
    RECORD_LOG("%s is not sent: the platform takes no file for e-mail\n\n", m_name.c_str());
    return;
  }
  char text[512];
  std::snprintf(text, sizeof text, "%s %s, stream %d, picture %d of %d", m_task.m_logPrefix, m_task.m_taskName,
                m_task.m_param.stream, number, m_task.m_param.count);
  m_task.EmailFile(from, m_name.c_str(), text);
}

void PhotoRun::Fail(int number, const char* reason) {
  RECORD_LOG("picture %d of %d failed: %s\n\n", number, m_task.m_param.count, reason);
  m_task.PictureFailed(number, reason);
}

}  // namespace record
