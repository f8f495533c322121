// Plays one file.
#ifndef PLAYBACK_FILE_PLAYER_H
#define PLAYBACK_FILE_PLAYER_H

#include <string>
#include <utility>

#include "playback/playback_pump.h"

namespace record {

class FilePlayer : public PlaybackPump {
 public:
  FilePlayer(unsigned sessionId, std::string path, const PlaybackCallbacks& callbacks)
      : PlaybackPump(sessionId, callbacks), m_path(std::move(path)) {}

  int Work() override;
  int InnerSeek(long long offset) override;
  int OpenFile();
  const std::string& Path() const { return m_path; }
  unsigned FileTime() const { return m_fileTime; }

 protected:
  void LogOpened(const std::string& path) override;
  std::uint64_t BaseMs() const override { return 0; }
  const std::string& PlayingPath() const override { return m_path; }
  bool AtEnd() override { return false; }

 private:
  const std::string m_path;
  std::atomic<unsigned> m_fileTime{0};  // where the reader stood when it had opened the file
};

}  // namespace record

#endif
