// What a record task leaves beside its record file: side file, type index, lock file, file list.
#include <fcntl.h>
#include <strings.h>
#include <sys/file.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "base/clock.h"
#include "base/device_path.h"
#include "base/log.h"
#include "record/platform.h"
#include "record/task.h"
#include "storage/layout.h"
#include "storage/record_info.h"
#include "storage/type_index.h"

static_assert(record::kTypeIndexMinutes == 1440);

void CRecordTask::ReadRunClock() {
  const record::RunTime now = record::RunNow();
  m_times.currentSeconds = now.seconds;
  m_times.currentMicroseconds = now.microseconds;
}

long long CRecordTask::ElapsedMilliseconds() const {
  return record::ElapsedMs({m_times.startSeconds, m_times.startMicroseconds},
                           {m_times.currentSeconds, m_times.currentMicroseconds});
}

double CRecordTask::ExactElapsedMilliseconds() const {
  return (static_cast<double>(m_times.currentMicroseconds) - static_cast<double>(m_times.startMicroseconds)) /
             1000 +
         (static_cast<double>(m_times.currentSeconds) - static_cast<double>(m_times.startSeconds)) * 1000;
}

void CRecordTask::StampInfoTimes() {
  constexpr long long kSecond = 1000000;
  const long long start = m_times.wallSeconds * kSecond + m_times.wallMicroseconds;
  const long long length =
      (static_cast<long long>(m_times.currentSeconds) - static_cast<long long>(m_times.startSeconds)) * kSecond +
      static_cast<long long>(m_times.currentMicroseconds) - static_cast<long long>(m_times.startMicroseconds);
  const long long end = start + length;
  m_info.startSeconds = m_times.wallSeconds;
  m_info.startMicroseconds = m_times.wallMicroseconds;
  m_info.endSeconds = static_cast<std::uint32_t>(end / kSecond);
  m_info.endMicroseconds = static_cast<std::uint32_t>(end % kSecond);
}

int CRecordTask::WriteInfoFile(int atEnd) {
  const std::string path = record::InfoPath(m_filePath);
  StampInfoTimes();
  m_info.nTimeSeconds = record::RecordInfoSeconds(m_info);
  RECORD_LOG("%s, from %u to %u, nTimeSeconds %u\n", path.c_str(), m_info.startSeconds, m_info.endSeconds,
             m_info.nTimeSeconds);
  // An MP4 without a key frame is worthless and must not be catalogued.
  const char* slash = std::strrchr(m_filePath, '/');
  const char* name = slash != nullptr ? slash : m_filePath;
  if (atEnd > 0 && strcasestr(name, ".mp4") != nullptr && m_info.keyFrames < 1) {
    unlink(path.c_str());
    return -1;
  }
  const int written = m_filePath[0] != '\0' ? record::WriteRecordInfo(path, m_info) : -1;
  if (written < 0) {
    RECORD_LOG("open %s failed!\n\n", path.c_str());
    return -1;
  }
  if (written < static_cast<int>(sizeof m_info)) {
    RECORD_LOG("save record info to %s failed. ret = %d.\n\n", path.c_str(), written);
    return -1;
  }
  return 0;
}

int CRecordTask::loadRecTypeIdx() {
  const char* directory = m_storageBase[0] != '\0' ? m_storageBase : m_networkBase;
  if (directory[0] == '\0') return -1;
  std::snprintf(m_typeIndexPath, sizeof m_typeIndexPath, "%s", record::TypeIndexPath(directory).c_str());
  return record::LoadTypeIndex(m_typeIndexPath, m_minuteTypes) ? 0 : -1;
}

int CRecordTask::updateRecTypeIdx(int minute) {
  if (m_typeIndexPath[0] == '\0' || minute < 0 || minute >= kMinutesPerDay) return -1;
  if (record::StoreTypeIndexMinute(m_typeIndexPath, m_minuteTypes, minute)) return 0;
  RECORD_LOG("min=%d failed.\n", minute);
  return -1;
}

int CRecordTask::setRecTypeIdx(int minute, char code) {
  if (minute < 0 || minute >= kMinutesPerDay) return -1;
  const int type = record::AlarmLogType(code);
  std::printf("alarm_log_type:%d", type);
  add_by_multiparams(0, type);
  m_minuteTypes[minute] = code;
  updateRecTypeIdx(minute);
  return 0;
}

void CRecordTask::CreateLockFile(char* name, struct tm* start) {
  if (m_lockFilePath[0] != '\0') RemoveLockFile();
  std::snprintf(m_lockFilePath, sizeof m_lockFilePath, "%s", record::LockFilePath(*start, name).c_str());
  m_lockFile = open(m_lockFilePath, O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0);
  // Lets others tell a lock that is held from one that a crash left behind.
  if (m_lockFile >= 0) flock(m_lockFile, LOCK_EX | LOCK_NB);
  RECORD_LOG("create lock file: %s\n\n", m_lockFilePath);
}

void CRecordTask::RemoveLockFile() {
  if (m_lockFile >= 0) {
    close(m_lockFile);
    m_lockFile = -1;
  }
  if (m_lockFilePath[0] == '\0') return;
  RECORD_LOG("remove lock file: %s\n\n", m_lockFilePath);
  unlink(m_lockFilePath);
  const std::string command = "rm -f " + record::ShellWord(m_lockFilePath);
  mysystem(command.c_str());
  m_lockFilePath[0] = '\0';
}

int CRecordTask::WriteFileList(const char* directory, const char* name) {
  const std::string path = record::FileListPath(directory);
  constexpr int kFlags = O_WRONLY | O_CREAT | O_APPEND | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;
  const int file = open(path.c_str(), kFlags, 0666);
  if (file < 0) {
    RECORD_LOG("puts %s to %s failed\n", name, path.c_str());
    return -1;
  }
  // The NUL in front of the line feed is part of the format. One write, so that two tasks' entries never mix.
  std::string entry = name;
  entry.append("\0\n", 2);
  const ssize_t written = write(file, entry.data(), entry.size());
  close(file);
  if (written != static_cast<ssize_t>(entry.size())) {
    RECORD_LOG("puts %s to %s failed\n", name, path.c_str());
    return -1;
  }
  RECORD_LOG("puts %s to %s\n", name, path.c_str());
  return 0;
}
