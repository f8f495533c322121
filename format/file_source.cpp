#include "format/file_source.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>

namespace record {
namespace {

constexpr std::size_t kPage = 4096;

}  // namespace

FileSource::~FileSource() {
  Close();
}

bool FileSource::Open(const char* path) {
  // A pipe with a record's name must not hold the caller up.
  const int descriptor = open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (descriptor < 0) return false;
  struct stat status;
  if (fstat(descriptor, &status) != 0 || !S_ISREG(status.st_mode)) {
    close(descriptor);
    errno = EINVAL;
    return false;
  }
  m_descriptor = descriptor;
  m_size = status.st_size;
  m_readAhead = false;
  posix_fadvise(m_descriptor, 0, 0, POSIX_FADV_RANDOM);
  return true;
}

void FileSource::Close() {
  if (m_descriptor >= 0) close(m_descriptor);
  m_descriptor = -1;
}

bool FileSource::RefreshSize() {
  struct stat status;
  if (fstat(m_descriptor, &status) != 0 || status.st_size == m_size) return false;
  m_size = status.st_size;
  return true;
}

std::size_t FileSource::ReadAt(long long offset, void* to, std::size_t length) const {
  std::size_t done = 0;
  while (done < length) {
    const ssize_t got = pread(m_descriptor, static_cast<std::uint8_t*>(to) + done, length - done,
                              offset + static_cast<long long>(done));
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) break;
    done += static_cast<std::size_t>(got);
  }
  return done;
}

std::size_t FileSource::ReadAt(long long offset, void* first, std::size_t firstLength, void* second,
                               std::size_t secondLength) const {
  const iovec parts[] = {{first, firstLength}, {second, secondLength}};
  const ssize_t got = preadv(m_descriptor, parts, 2, offset);
  std::size_t done = got > 0 ? static_cast<std::size_t>(got) : 0;
  if (got <= 0 && !(got < 0 && errno == EINTR)) return 0;
  // The rare rest: an interrupted call, or a medium that answers in pieces.
  if (done < firstLength) {
    done += ReadAt(offset + static_cast<long long>(done), static_cast<std::uint8_t*>(first) + done,
                   firstLength - done);
    if (done < firstLength) return done;
  }
  const std::size_t inSecond = done - firstLength;
  return done + ReadAt(offset + static_cast<long long>(done), static_cast<std::uint8_t*>(second) + inSecond,
                       secondLength - inSecond);
}

void FileSource::ReadAhead(bool on) {
  if (m_readAhead == on) return;
  m_readAhead = on;
  posix_fadvise(m_descriptor, 0, 0, on ? POSIX_FADV_SEQUENTIAL : POSIX_FADV_RANDOM);
}

FileWindow::FileWindow(FileSource& source, std::size_t smallest, std::size_t largest)
    : m_source(source), m_smallest(smallest), m_largest(largest) {}

std::uint8_t* FileWindow::At(long long offset, std::size_t* available) const {
  const long long into = offset - m_begin;
  if (into < 0 || into >= static_cast<long long>(m_length)) {
    *available = 0;
    return nullptr;
  }
  *available = m_length - static_cast<std::size_t>(into);
  return m_block.get() + into;
}

std::uint8_t* FileWindow::Fetch(long long offset, std::size_t needed, std::size_t* available) {
  std::uint8_t* bytes = At(offset, available);
  if (*available >= needed) return bytes;
  const std::size_t fill = std::max(NextFill(offset), needed);
  if (!m_block) {
    *available = 0;
    return nullptr;
  }
  const std::size_t kept = *available;
  if (kept > 0) std::memmove(m_block.get(), bytes, kept);
  m_begin = offset;
  m_length = kept + m_source.ReadAt(offset + static_cast<long long>(kept), m_block.get() + kept, fill - kept);
  *available = m_length;
  return m_block.get();
}

bool FileWindow::ReadThrough(long long offset, std::uint8_t* to, std::size_t length) {
  const std::size_t fill = NextFill(offset);
  const std::size_t got = m_source.ReadAt(offset, to, length, m_block.get(), fill);
  m_begin = offset + static_cast<long long>(length);
  m_length = got > length ? got - length : 0;
  return got >= length;
}

// In a row means within or right behind the block. The first block after a jump ends with its page: the next
// page may have to come from the medium, and a jump may follow.
std::size_t FileWindow::NextFill(long long offset) {
  if (!m_block) m_block.reset(new (std::nothrow) std::uint8_t[m_largest]);
  if (!m_block) return 0;
  const bool inRow = m_length > 0 && offset >= m_begin && offset <= m_begin + static_cast<long long>(m_length);
  if (inRow) {
    m_fill = std::min(m_fill * 2, m_largest);
    return m_fill;
  }
  m_fill = m_smallest;
  const std::size_t page = kPage - static_cast<std::size_t>(offset % static_cast<long long>(kPage));
  return m_smallest < kPage ? std::min(m_smallest, page) : m_smallest;
}

}  // namespace record
