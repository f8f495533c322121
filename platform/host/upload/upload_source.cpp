#include "platform/host/upload/upload_source.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace record {

UploadSource::UploadSource(const std::string& path)
    : m_file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK)) {
  const bool isFile = m_file >= 0 && fstat(m_file, &m_begin) == 0 && S_ISREG(m_begin.st_mode);
  if (isFile) return;
  m_isGone = m_file >= 0 || errno == ENOENT || errno == ENOTDIR;
  m_error = m_isGone ? "the file is not there any more"
                     : std::string("the file cannot be read: ") + std::strerror(errno);
  if (m_file >= 0) close(m_file);
  m_file = -1;
}

UploadSource::~UploadSource() {
  if (m_file >= 0) close(m_file);
}

bool UploadSource::IsAsItWas() const {
  struct stat now = {};
  return fstat(m_file, &now) == 0 && now.st_size == m_begin.st_size &&
         now.st_mtim.tv_sec == m_begin.st_mtim.tv_sec && now.st_mtim.tv_nsec == m_begin.st_mtim.tv_nsec;
}

std::int64_t UploadSource::Read(char* buffer, size_t length) {
  const std::int64_t left = Size() - m_position;
  if (left <= 0) return 0;
  const size_t wanted = static_cast<size_t>(std::min<std::int64_t>(left, static_cast<std::int64_t>(length)));
  const ssize_t got = pread(m_file, buffer, wanted, static_cast<off_t>(m_position));
  if (got < 0) m_error = std::string("the file cannot be read: ") + std::strerror(errno);
  if (got == 0 || (got == left && !IsAsItWas())) m_error = "the file changed while it was sent";
  if (!m_error.empty()) return -1;
  m_position += got;
  return got;
}

bool UploadSource::Rewind() {
  m_position = 0;
  return IsOpen();
}

}  // namespace record
