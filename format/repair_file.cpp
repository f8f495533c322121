#include "format/repair_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>

namespace record {

RepairFile::~RepairFile() {
  if (m_descriptor >= 0) close(m_descriptor);
}

std::string RepairFile::Open(const char* path, long long sizeBefore) {
  m_descriptor = open(path, O_WRONLY | O_CLOEXEC | O_NONBLOCK);
  if (m_descriptor < 0) return std::strerror(errno);
  struct stat status;
  if (fstat(m_descriptor, &status) != 0) return std::strerror(errno);
  return status.st_size == sizeBefore ? "" : "it is still being written";
}

bool RepairFile::Note(bool succeeded) {
  if (!succeeded && m_error == 0) m_error = errno;
  return succeeded;
}

bool RepairFile::WriteAt(long long offset, const void* data, std::size_t length) {
  std::size_t done = 0;
  while (done < length) {
    const ssize_t put = pwrite(m_descriptor, static_cast<const std::uint8_t*>(data) + done, length - done,
                               offset + static_cast<long long>(done));
    if (put < 0 && errno == EINTR) continue;
    if (put == 0) errno = ENOSPC;
    if (put <= 0) return Note(false);
    done += static_cast<std::size_t>(put);
  }
  return true;
}

bool RepairFile::Sync() {
  return Note(fsync(m_descriptor) == 0);
}

bool RepairFile::SetSize(long long size) {
  return Note(ftruncate(m_descriptor, size) == 0);
}

std::string RepairFile::Close() {
  Note(close(m_descriptor) == 0);
  m_descriptor = -1;
  return m_error == 0 ? "" : std::strerror(m_error);
}

FileRepair FailRepair(FileRepair repair, const char* path, const std::string& why) {
  repair.outcome = FileRepair::Failed;
  repair.error = std::string("cannot repair ") + path + ": " + why;
  return repair;
}

}  // namespace record
