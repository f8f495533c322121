#include "platform/host/mp4_output_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cerrno>

namespace record {
namespace {

// All of it, or an errno.
int WriteAll(int file, std::uint64_t offset, struct iovec* parts, int count) {
  while (count > 0) {
    if (parts->iov_len == 0) {
      ++parts;
      --count;
      continue;
    }
    const ssize_t written = pwritev(file, parts, count, static_cast<off_t>(offset));
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return written == 0 ? EIO : errno;
    offset += static_cast<std::uint64_t>(written);
    for (auto left = static_cast<size_t>(written); left > 0;) {
      const size_t taken = left < parts->iov_len ? left : parts->iov_len;
      parts->iov_base = static_cast<unsigned char*>(parts->iov_base) + taken;
      parts->iov_len -= taken;
      left -= taken;
      if (parts->iov_len > 0) break;
      ++parts;
      --count;
    }
  }
  return 0;
}

struct iovec PartOf(const Bytes& bytes) {
  return {const_cast<unsigned char*>(bytes.data()), bytes.size()};
}

}  // namespace

Mp4OutputFile::~Mp4OutputFile() {
  if (m_file >= 0) close(m_file);
}

int Mp4OutputFile::Create(const std::string& path) {
  constexpr mode_t kMode = 0777;  // that of every record file
  m_file = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, kMode);
  if (m_file < 0) return errno;
  struct stat status;
  if (fstat(m_file, &status) != 0) return errno;
  return S_ISREG(status.st_mode) ? 0 : EINVAL;
}

int Mp4OutputFile::Append(const Bytes& first, const Bytes& second) {
  struct iovec parts[] = {PartOf(first), PartOf(second)};
  const int error = WriteAll(m_file, m_size, parts, 2);
  if (error == 0) {
    m_size += first.size() + second.size();
    return 0;
  }
  return ftruncate(m_file, static_cast<off_t>(m_size)) == 0 ? error : errno;
}

int Mp4OutputFile::WriteOver(std::uint64_t offset, const Bytes& bytes) {
  struct iovec part = PartOf(bytes);
  return WriteAll(m_file, offset, &part, 1);
}

int Mp4OutputFile::Sync() {
  return fdatasync(m_file) == 0 ? 0 : errno;
}

}  // namespace record
