#include "platform/host/mp4_output_file.h"

#include <fcntl.h>
#include <linux/magic.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <cerrno>

namespace record {
namespace {

constexpr std::uint64_t kReservedAtOnce = 4 << 20;

// Elsewhere a reservation is written as zeros, or what a crash leaves of it is taken for damage.
bool KeepsJournal(int file) {
  struct statfs status;
  return fstatfs(file, &status) == 0 && (status.f_type == EXT4_SUPER_MAGIC || status.f_type == XFS_SUPER_MAGIC);
}

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
  ReleaseRest();
  if (m_file >= 0) close(m_file);
}

int Mp4OutputFile::Create(const std::string& path) {
  constexpr mode_t kMode = 0777;  // that of every record file
  m_file = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, kMode);
  if (m_file < 0) return errno;
  struct stat status;
  if (fstat(m_file, &status) != 0) return errno;
  m_reserves = KeepsJournal(m_file);
  return S_ISREG(status.st_mode) ? 0 : EINVAL;
}

// A reservation that fails may have taken all that was left: others need it, too, and what cannot be had now may
// be there by the time it is written.
void Mp4OutputFile::Reserve(std::uint64_t end) {
  while (m_reserves && m_reserved < end) {
    const auto from = static_cast<off_t>(m_reserved);
    m_reserved += kReservedAtOnce;
    if (fallocate(m_file, FALLOC_FL_KEEP_SIZE, from, kReservedAtOnce) != 0) ReleaseRest();
  }
}

void Mp4OutputFile::ReleaseRest() {
  m_reserves = false;
  if (m_reserved > m_size && ftruncate(m_file, static_cast<off_t>(m_size)) != 0) return;
  m_reserved = 0;
}

int Mp4OutputFile::Append(const Bytes& first, const Bytes& second) {
  struct iovec parts[] = {PartOf(first), PartOf(second)};
  Reserve(m_size + first.size() + second.size());
  const int error = WriteAll(m_file, m_size, parts, 2);
  if (error == 0) {
    m_size += first.size() + second.size();
    return 0;
  }
  m_reserves = false;
  m_reserved = 0;
  return ftruncate(m_file, static_cast<off_t>(m_size)) == 0 ? error : errno;
}

int Mp4OutputFile::WriteOver(std::uint64_t offset, const Bytes& bytes) {
  struct iovec part = PartOf(bytes);
  return WriteAll(m_file, offset, &part, 1);
}

int Mp4OutputFile::Sync() {
  ReleaseRest();
  return fdatasync(m_file) == 0 ? 0 : errno;
}

}  // namespace record
