#include "storage/record_info.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include "record/platform.h"

namespace record {

long long RecordInfoSpanMs(const RecordInfoStruct& info) {
  return timeval_differ(info.endSeconds, info.endMicroseconds, info.startSeconds, info.startMicroseconds);
}

std::uint32_t RecordInfoSeconds(const RecordInfoStruct& info) {
  return static_cast<std::uint32_t>((std::max(RecordInfoSpanMs(info), 0LL) + 500) / 1000);
}

int ReadRecordInfo(const std::string& path, RecordInfoStruct& info) {
  return ReadRecordInfoAt(AT_FDCWD, path.c_str(), info);
}

int ReadRecordInfoAt(int directory, const char* path, RecordInfoStruct& info) {
  const int file = openat(directory, path, O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (file < 0) return -1;
  const ssize_t size = read(file, &info, sizeof info);
  close(file);
  return size > 0 ? static_cast<int>(size) : 0;
}

int WriteRecordInfo(const std::string& path, const RecordInfoStruct& info) {
  const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0777);
  if (file < 0) return -1;
  const ssize_t written = write(file, &info, sizeof info);
  struct stat status;
  if (fstat(file, &status) == 0 && status.st_size > static_cast<off_t>(sizeof info) &&
      ftruncate(file, sizeof info) != 0) {
    close(file);
    return 0;
  }
  close(file);
  return written > 0 ? static_cast<int>(written) : 0;
}

}  // namespace record
