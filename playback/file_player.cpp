#include "playback/file_player.h"

#include <cstdio>

namespace record {

void FilePlayer::LogOpened(const std::string& path) {
  RECORD_LOG_MODULE(kLogModuleLifecycle, "%s open OK.\n\n", path.c_str());
}

int FilePlayer::OpenFile() {
  const Lock lock(*this, __LINE__);
  if (OpenReader(m_path) != 0) return -1;
  m_fileTime = static_cast<unsigned>(m_file.Reader().GetTimeOffset());
  return 0;
}

// An offset below the file time is refused in silence towards the consumer, deliberately so.
int FilePlayer::InnerSeek(long long offset) {
  const auto shown = static_cast<int>(offset);
  const unsigned begin = m_fileTime;
  if (begin > offset) {  // the colon is a full-width one, as its readers know it
    RECORD_LOG("%s\xa3\xba seektime %d is not in [%u %u]\n", m_path.c_str(), shown, 0u, begin);
    return -1;
  }
  RECORD_LOG("%s: seektime %d is in [%u %u]\n", m_path.c_str(), shown, 0u, begin);
  Lock lock(*this, __LINE__);
  if (!m_file.IsOpen()) {
    RECORD_LOG_TEXT("open file error\n");
    return -1;
  }
  const auto seconds = static_cast<unsigned long>(offset);
  const int result = m_file.Seek(seconds) == 0 ? 0 : -1;
  if (result == 0)
    RECORD_LOG("%s seek offset %lu OK.\n", m_path.c_str(), seconds);
  else
    RECORD_LOG("%s seek offset %lu failed.\n", m_path.c_str(), seconds);
  FinishSeek(lock);
  return result;
}

int FilePlayer::Work() {
  const unsigned before = GetCurrentTimeStamp();
  if (FileExist(m_path.c_str()) == 0) {
    std::printf("m_szFileName is noEixist==%s\n", m_path.c_str());
    return 0;
  }
  {
    const Worker worker(*this);
    if (IsRunning()) {
      if (OpenFile() == 0) {
        RECORD_LOG_MODULE(kLogModuleLifecycle, "%s: open ok.\n", m_path.c_str());
        Loop();
      } else {
        RECORD_LOG("%s: open failed.\n", m_path.c_str());
      }
    }
  }
  RECORD_LOG_MODULE(kLogModuleLifecycle, "%s, session %u playback finished, spend %d mseconds\n", m_path.c_str(),
                    SessionId(), static_cast<int>(GetCurrentTimeStamp() - before));
  return 0;
}

}  // namespace record
