#include "export/clip_writer.h"

#include <cerrno>
#include <cstring>

#include "base/log.h"

namespace record {

void ClipWriter::SetParams(const VIDEO_PARAM& video, const AUDIO_PARAM& audio) {
  m_video = video;
  m_audio = audio;
  m_hasParams = true;
}

void ClipWriter::Count(const ClipFrame& frame) {
  ++(frame.isVideo ? m_videoFrames : m_audioFrames);
  m_bytes += static_cast<unsigned>(frame.length);
}

int ClipWriter::Fail(int result, int error) {
  m_failed = true;
  m_error = error;
  return result;
}

int ClipWriter::Close() {
  if (!IsOpen()) return -1;
  const int closed = CloseFile();
  if (closed != 0 && !m_failed) Fail(-1, closed);
  if (!m_failed) {
    const int error = m_name.Publish();
    if (error == 0) return 0;
    Fail(-1, error);
  }
  RECORD_LOG("%s is not whole, what was written lies in %s: %s\n\n", m_name.Path().c_str(),
             m_name.Chosen().c_str(), std::strerror(m_error));
  return -1;
}

}  // namespace record
