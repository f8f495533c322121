#include "storage/type_index.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cstring>

namespace record {

bool LoadTypeIndex(const std::string& path, char* minutes) {
  std::memset(minutes, kNoRecording, kTypeIndexMinutes);
  const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (file < 0) return false;
  const ssize_t size = pread(file, minutes, kTypeIndexMinutes, 0);
  static_cast<void>(size);  // what a short file does not tell stays 'C'
  close(file);
  return true;
}

char ReadTypeIndexMinute(const std::string& path, int minute) {
  char code = kNoRecording;
  const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (file < 0) return code;
  if (pread(file, &code, 1, minute) != 1) code = kNoRecording;
  close(file);
  return code;
}

bool StoreTypeIndexMinute(const std::string& path, const char* minutes, int minute) {
  int file = open(path.c_str(), O_RDWR | O_CLOEXEC | O_NONBLOCK | O_NOFOLLOW);
  if (file >= 0) {
    // A file cut short by a crash is written whole: a hole would read as minutes of an unknown kind.
    struct stat status;
    const bool whole = fstat(file, &status) == 0 && status.st_size >= kTypeIndexMinutes;
    const ssize_t written =
        whole ? pwrite(file, minutes + minute, 1, minute) : pwrite(file, minutes, kTypeIndexMinutes, 0);
    static_cast<void>(written);  // a lost mark is mended by the next stamp
    close(file);
    return true;
  }
  file = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0700);
  if (file < 0) return false;
  const ssize_t written = write(file, minutes, kTypeIndexMinutes);
  close(file);
  return written == kTypeIndexMinutes;
}

int AlarmLogType(char code) {
  constexpr std::array<int, 12> kTypes = {0, 10, 1, 6, 9, 11, 2, 3, 4, 5, 7, 8};  // 'D' to 'O'
  constexpr int kOther = 1;
  return code >= 'D' && code <= 'O' ? kTypes[static_cast<size_t>(code - 'D')] : kOther;
}

}  // namespace record
