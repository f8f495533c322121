// The file that is being sent: exactly the bytes that it had when it was opened, or a broken-off transfer.
#ifndef PLATFORM_HOST_UPLOAD_UPLOAD_SOURCE_H
#define PLATFORM_HOST_UPLOAD_UPLOAD_SOURCE_H

#include <sys/stat.h>

#include <cstddef>
#include <cstdint>
#include <string>

namespace record {

class UploadSource {
 public:
  explicit UploadSource(const std::string& path);
  ~UploadSource();
  UploadSource(const UploadSource&) = delete;
  UploadSource& operator=(const UploadSource&) = delete;

  bool IsOpen() const { return m_file >= 0; }
  bool IsGone() const { return m_isGone; }  // not open, and never will be
  const std::string& Error() const { return m_error; }
  std::int64_t Size() const { return m_begin.st_size; }

  // Up to `length` bytes into `buffer`; 0 at the end, -1 (with Error) when the file changed or cannot be read. The
  // last bytes are given out only when the file is still what it was: a receiver never has a whole one that is
  // not.
  std::int64_t Read(char* buffer, size_t length);
  bool Rewind();

 private:
  bool IsAsItWas() const;

  int m_file;
  bool m_isGone = false;
  struct stat m_begin = {};
  std::int64_t m_position = 0;
  std::string m_error;
};

}  // namespace record

#endif
