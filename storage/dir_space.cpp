#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <climits>
#include <cstdint>

#include "base/log.h"
#include "record/platform.h"
#include "record/storage.h"

int GetDirSpace(const char* directory) {
  RECORD_LOG("dir_path=%s\n\n", directory);
  const int remembered = LoadDirSpaceFromCache(directory);
  if (remembered > 0) {
    RECORD_LOG("got size of dir: %s from cache, size is %d\n\n", directory, remembered);
    return remembered;
  }
  DIR* entries = opendir(directory);
  if (entries == nullptr) return 0;
  std::int64_t kib = 0;
  while (const dirent* entry = readdir(entries)) {
    struct stat status;
    if (fstatat(dirfd(entries), entry->d_name, &status, AT_SYMLINK_NOFOLLOW) == 0 && S_ISREG(status.st_mode))
      kib += status.st_size / 1024;
  }
  closedir(entries);
  const int result = static_cast<int>(kib < INT_MAX ? kib : INT_MAX);
  SaveDirSpaceToCache(directory, result);
  RECORD_LOG("dir: %s size= %d K\n", directory, result);
  return result;
}
