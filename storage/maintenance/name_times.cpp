// The times that names tell.
#include <cstdio>
#include <cstring>
#include <ctime>
#include <string>

#include "base/clock.h"
#include "base/log.h"
#include "base/no_throw.h"
#include "base/time_word.h"
#include "record/maintenance.h"
#include "storage/layout.h"
#include "storage/maintenance/name_times.h"

namespace record {
namespace {

enum class FileKind { kOther, kVideo, kPicture };

FileKind KindOfName(const char* name) {
  FileKind kind = FileKind::kOther;
  for (const char* dot = std::strchr(name, '.'); dot != nullptr; dot = std::strchr(dot + 1, '.')) {
    if (std::strncmp(dot, ".mp4", 4) == 0 || std::strncmp(dot, ".avi", 4) == 0 ||
        std::strncmp(dot, ".kmv", 4) == 0)
      kind = FileKind::kVideo;
    else if (std::strncmp(dot, ".jpg", 4) == 0)
      kind = FileKind::kPicture;
  }
  return kind;
}

bool ScanPictureName(const char* name, struct tm& time) {
  int end = 0;
  if (!ScanDay(name, time) || std::sscanf(name, "%*4d%*2d%*2d_%n", &end) < 0 || end == 0) return false;
  return ScanClock(name + end, time);
}

}  // namespace

bool NameTimes::OfFile(const char* directory, const char* name, struct tm& time) {
  time = {};
  switch (KindOfName(name)) {
    case FileKind::kVideo: {
      const char* slash = std::strrchr(directory, '/');
      return slash != nullptr && ScanDay(slash + 1, time) && ScanClock(name, time);
    }
    case FileKind::kPicture:
      return ScanPictureName(name, time);
    default:
      return false;
  }
}

bool NameTimes::OfDirectory(const char* name, struct tm& time) {
  time = {};
  return ScanDay(name, time);
}

}  // namespace record

using record::NameTimes;

int isPrivFile(const char* dirPath, const char* fileName, long& time, struct tm* tmOut) {
  struct tm named;
  if (!NameTimes::OfFile(dirPath, fileName, named)) return 0;
  const long long seconds = record::StandardTimeSeconds(named);
  time = record::ToTimeWord(seconds);
  if (tmOut != nullptr) *tmOut = record::LocalTime(seconds);
  return 1;
}

int isPrivDir(const char* name, long& time, struct tm* tmOut) {
  struct tm named;
  if (!NameTimes::OfDirectory(name, named)) return 0;
  const long long seconds = record::StandardTimeSeconds(named);
  time = record::ToTimeWord(seconds);
  if (tmOut != nullptr) *tmOut = record::LocalTime(seconds);
  return 1;
}

int GetRecordFileStartTime(const char* path, struct tm* tmOut) try {
  const std::string text = path;
  const size_t slash = text.rfind('/');
  const std::string name = slash == std::string::npos ? text : text.substr(slash + 1);
  const std::string parent = slash == std::string::npos ? "" : text.substr(0, slash);
  const std::string day = parent.substr(parent.rfind('/') + 1);  // all of it without a slash
  struct tm start = *tmOut;
  if (!record::ScanClock(name.c_str(), start)) {
    RECORD_LOG("sscanf filename != 3, filename = %s", name.c_str());
    return -1;
  }
  if (!record::ScanDay(day.c_str(), start)) {
    RECORD_LOG("sscanf  dayDir != 3, dayDir = %s", day.c_str());
    return -1;
  }
  *tmOut = start;
  return 0;
}
RECORD_NO_THROW(-1)
