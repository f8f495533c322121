#include "format/media_file.h"

#include <utility>

namespace record {

int MediaFile::Open(const std::string& path) {
  Close();
  std::unique_ptr<CVideoFile> reader = NewVideoFile(path.c_str());
  if (!reader) {
    RECORD_LOG_MODULE(m_log.module, "not support %s%s", path.c_str(), m_log.lineEnd);
    return -1;
  }
  if (reader->Open(path.c_str()) < 1) {
    RECORD_LOG_MODULE(m_log.module, "open video file %s failed!!!%s", path.c_str(), m_log.lineEnd);
    return -1;
  }
  m_path = path;
  m_reader = std::move(reader);
  m_kmv = dynamic_cast<CKmvFile*>(m_reader.get());
  if (m_kmv) m_kmv->LendFrames();
  if (auto* const avi = dynamic_cast<CAviFile*>(m_reader.get())) avi->LendFrames();
  return 0;
}

int MediaFile::GetParams(VIDEO_PARAM& video, AUDIO_PARAM& audio) {
  unsigned long flags = 0;
  video = {};
  audio = {};
  if (m_reader->GetMeidaParam(&flags, &video, &audio) >= 0) return 0;
  RECORD_LOG_MODULE(m_log.module, "GetMeidaParam of video file %s failed!!!%s", m_path.c_str(), m_log.lineEnd);
  Close();
  return -1;
}

void MediaFile::Close() {
  m_peeked.reset();
  m_kmv = nullptr;
  m_reader.reset();
}

int MediaFile::Read(MediaFrame& frame) {
  if (m_peeked) {
    frame = std::move(*m_peeked);
    m_peeked.reset();
    return frame.length;
  }
  frame = {};
  unsigned char* data = nullptr;
  long isOwned = 0;
  long isVideo = 0;
  long isKey = 0;
  unsigned long stamp = 0;
  const int length = m_reader->GetMediaFrame(&data, isOwned, isVideo, isKey, stamp);
  if (length >= 0 && isOwned != 0) frame.owned.reset(data);
  if (length < 0) return length;
  if (!frame.owned) frame.lender = m_reader;
  frame.data = data;
  frame.length = length;
  frame.isVideo = isVideo != 0;
  frame.isKey = isKey != 0;
  frame.stamp = static_cast<std::uint32_t>(stamp);
  frame.isStreamStamp = m_kmv != nullptr;
  frame.offsetMs = OffsetOf(frame.stamp);
  return length;
}

const MediaFrame* MediaFile::Peek() {
  MediaFrame frame;
  if (Read(frame) <= 0) return nullptr;
  return &m_peeked.emplace(std::move(frame));
}

int MediaFile::Seek(unsigned long seconds) {
  const int result = m_reader->SeekTimeOffset(seconds);
  if (result == 0) m_peeked.reset();
  return result;
}

// The time stamp that an AVI file has behind an ordinary seek is not that of its frame.
int MediaFile::SkipTo(unsigned long second) {
  auto* const avi = dynamic_cast<CAviFile*>(m_reader.get());
  m_peeked.reset();
  return avi != nullptr ? avi->SkipToSecond(second) : m_reader->SeekTimeOffset(second);
}

// AVI and MP4 readers count from the begin of the file. A KMV packet carries the stream's own stamp, modulo 2^32;
// one from before the first packet (audio behind its picture) belongs to the begin of the file.
std::uint32_t MediaFile::OffsetOf(std::uint32_t stamp) const {
  std::uint32_t first = 0;
  if (!GetFirstStamp(first)) return stamp;
  const std::uint32_t offset = stamp - first;
  return offset <= 0x7fffffffu ? offset : 0;
}

}  // namespace record
