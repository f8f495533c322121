// Small clips, made once a run with the ffmpeg program, a directory that goes away, and its files.
#ifndef TESTS_HOST_SUPPORT_CLIPS_H
#define TESTS_HOST_SUPPORT_CLIPS_H

#include <string>

namespace record {

// A directory below the system's temporary one, removed with all in it.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;
  const std::string& Path() const { return m_path; }

 private:
  std::string m_path;
};

std::string ReadFile(const std::string& path);                        // "" when it is not there
void WriteFile(const std::string& path, const std::string& content);  // makes the directories

// Path of a clip named `name`: moving picture 160x120 at 25 frames/s with a tone of 8000 samples/s, encoded
// as `options` say. "" when ffmpeg fails. The same name gives the same file.
std::string Clip(const std::string& name, double seconds, const std::string& options);

}  // namespace record

#endif
