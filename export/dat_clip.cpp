#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "base/log.h"
#include "export/clip_writer.h"

namespace record {

DatClip::~DatClip() {
  if (m_file >= 0) close(m_file);
}

int DatClip::Open() {
  const VIDEO_PARAM& video = Video();
  RECORD_LOG("codec=%s, %uX%u, %u fps\n\n", video.codec, video.width, video.height, video.framerate);
  const std::string path = m_name.Choose();
  // A file of that name is not emptied: kept, its end stays behind what is written. A temporary one is nobody's.
  const int empty = path != m_name.Path() ? O_TRUNC | O_NOFOLLOW : 0;
  m_file = open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | empty, 0777);
  if (m_file < 0) {
    const int error = errno;
    RECORD_LOG("open %s failed, errno = %d, err = %s\n\n", path.c_str(), error, std::strerror(error));
    return Fail(-1, error);
  }
  RECORD_LOG("store file: %s ...\n\n\n", m_name.Path().c_str());
  return 0;
}

int DatClip::Write(const ClipFrame& frame) {
  if (!frame.data || frame.length <= 0 || !HasParams()) return 0;
  if (m_file < 0 && Open() != 0) return -1;
  errno = 0;
  const ssize_t written = write(m_file, frame.data, static_cast<size_t>(frame.length));
  if (written == frame.length) {
    Count(frame);
    return 0;
  }
  const int error = errno != 0 ? errno : ENOSPC;
  RECORD_LOG("write len %d failed, err = %s\n\n\n", frame.length, std::strerror(error));
  // Also when not a byte came through, the export ends.
  return Fail(written != 0 ? static_cast<int>(written) : -1, error);
}

int DatClip::CloseFile() {
  const int error = close(m_file) != 0 ? errno : 0;
  m_file = -1;
  return error;
}

}  // namespace record
