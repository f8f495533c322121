// The RAM record directory and the record-status flag file.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <string>

#include "base/clock.h"
#include "base/device_path.h"
#include "base/directory.h"
#include "base/log.h"
#include "base/no_throw.h"
#include "record/maintenance.h"
#include "record/platform.h"
#include "storage/layout.h"

namespace record {
namespace {

// The next regular file of the directory that is a record file; null after the last.
const dirent* NextRecordFile(Directory& entries) {
  const dirent* entry = entries.Next();
  while (entry != nullptr && !(IsRecordFileName(entry->d_name) && entries.IsRegularFile(*entry)))
    entry = entries.Next();
  return entry;
}

}  // namespace
}  // namespace record

using record::Directory;

int DelExpiredTmpRecordFile(const char* directory, int maxAgeSeconds) try {
  RECORD_LOG("dir_path=%s", directory);
  Directory entries(directory, Directory::Links::kFollow);
  if (!entries.IsOpen()) return 0;
  while (const dirent* entry = record::NextRecordFile(entries)) {
    struct stat status;
    if (stat(record::JoinPath(directory, entry->d_name).c_str(), &status) != 0) {
      RECORD_LOG_TEXT("stat fail");
      break;
    }
    if (static_cast<long long>(status.st_mtime) + maxAgeSeconds < record::WallNow().seconds) {
      const std::string command = "rm -rf " + record::ShellWord(directory) + "/*";
      mysystem(command.c_str());
    }
  }
  return 0;
}
RECORD_NO_THROW(0)

int HasRecordFileInPath(const char* directory) try {
  RECORD_LOG("dir_path=%s", directory);
  Directory entries(directory, Directory::Links::kFollow);
  return entries.IsOpen() && record::NextRecordFile(entries) != nullptr ? 1 : 0;
}
RECORD_NO_THROW(0)

int update_record_status_file(int status) try {
  const std::string path = DevicePath(record::kRecordStatusFile);
  const int file = open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0666);
  if (file < 0) return 0;
  const std::int32_t word = status;
  const ssize_t written = write(file, &word, sizeof word);
  static_cast<void>(written);  // the flag is a hint; nobody could act on a failure
  close(file);
  return 0;
}
RECORD_NO_THROW(0)

int ExtractRecordFile() {
  return -1;
}
