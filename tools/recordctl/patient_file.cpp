#include "tools/recordctl/patient_file.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>

#include "base/clock.h"
#include "tools/recordctl/signals.h"

namespace recordctl {

PatientFile::~PatientFile() {
  if (m_file > STDOUT_FILENO) close(m_file);
}

bool PatientFile::HasPatience() {
  if (m_isEnded()) m_patienceMs -= kPollMs;
  return m_patienceMs > 0;
}

int PatientFile::Open(const std::string& path) {
  const bool isNamed = path != "-";
  constexpr int kFlags = O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NONBLOCK;
  m_file = isNamed ? open(path.c_str(), kFlags, 0666) : STDOUT_FILENO;
  while (m_file < 0 && (errno == ENXIO || errno == EINTR)) {  // a named pipe that nobody has opened to read
    if (!HasPatience()) return ECANCELED;
    record::SleepMs(kPollMs);
    m_file = open(path.c_str(), kFlags, 0666);
  }
  if (m_file < 0) return errno;
  struct stat status = {};
  m_isRegular = isNamed && fstat(m_file, &status) == 0 && S_ISREG(status.st_mode);
  return 0;
}

int PatientFile::AwaitRoom() {
  struct pollfd room = {m_file, POLLOUT, 0};
  for (;;) {
    const int ready = poll(&room, 1, kPollMs);
    if (ready > 0) return 0;
    if (ready < 0 && errno != EINTR) return errno;
    if (!HasPatience()) return ECANCELED;
  }
}

// Standard output may be shared with other programs and stays as it is, waiting: but a pipe that has room takes so
// many bytes at once.
int PatientFile::Write(const std::uint8_t* data, int length) {
  while (length > 0) {
    const int error = AwaitRoom();
    if (error != 0) return error;
    const auto piece = static_cast<std::size_t>(m_isRegular ? length : std::min(length, PIPE_BUF));
    const auto count = static_cast<int>(write(m_file, data, piece));
    if (count < 0 && errno != EINTR && errno != EAGAIN) return errno;
    data += std::max(count, 0);
    length -= std::max(count, 0);
  }
  return 0;
}

long long PatientFile::Seek(long long offset, int whence) const {
  return m_isRegular ? lseek(m_file, static_cast<off_t>(offset), whence) : -1;
}

}  // namespace recordctl
