#include "storage/layout.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <initializer_list>

#include "base/clock.h"
#include "base/device_path.h"
#include "record/types.h"

namespace record {
namespace {

// 1 to 4 for a kind of either set, 0 for a code that is none.
int BaseKind(int recordtype) {
  const int kind = recordtype > RECORD_KIND_SECOND_SET ? recordtype - RECORD_KIND_SECOND_SET : recordtype;
  return kind >= RECORD_KIND_SCHEDULE && kind <= RECORD_KIND_ALARM ? kind : 0;
}

// At most `width` characters as a decimal number, as scanf would take them.
int Digits(const char* text, size_t length, size_t position, size_t width) {
  int value = 0;
  for (size_t i = position; i < position + width && i < length; ++i) {
    if (text[i] < '0' || text[i] > '9') break;
    value = value * 10 + (text[i] - '0');
  }
  return value;
}

}  // namespace

const char* KindDirectory(int recordtype) {
  switch (BaseKind(recordtype)) {
    case RECORD_KIND_SCHEDULE:
      return "/schedule";
    case RECORD_KIND_MANUAL:
      return "/manual";
    case RECORD_KIND_MOTION:
      return "/motion";
    default:
      return "/alarm";
  }
}

const char* KindTaskName(int recordtype) {
  switch (BaseKind(recordtype)) {
    case RECORD_KIND_SCHEDULE:
      return "sched";
    case RECORD_KIND_MANUAL:
      return "manual";
    case RECORD_KIND_ALARM:
      return "alarm";
    default:
      return "motion";
  }
}

std::string JoinPath(std::string_view directory, std::string_view name) {
  std::string path;
  path.reserve(directory.size() + 1 + name.size());
  return path.append(directory).append(1, '/').append(name);
}

std::string DayName(int year, int month, int day) {
  char name[48];
  std::snprintf(name, sizeof name, "%04d%02d%02d", year, month, day);
  return name;
}

std::string DayDirectory(const std::string& parent, const struct tm& day) {
  return JoinPath(parent, DayName(day.tm_year + 1900, day.tm_mon + 1, day.tm_mday));
}

std::string DayDirectoryOf(const std::string& directory, const struct tm& day) {
  constexpr size_t kDayLength = 8;
  const size_t slash = directory.rfind('/');
  if (slash == std::string::npos || directory.size() - slash - 1 != kDayLength ||
      directory.find_first_not_of("0123456789", slash + 1) != std::string::npos)
    return directory;
  return DayDirectory(directory.substr(0, slash), day);
}

std::string RecordFileName(const struct tm& start, const char* tag, int stream, const char* extension) {
  char name[128];
  std::snprintf(name, sizeof name, "%02d%02d%02d-%s-%d%s", start.tm_hour, start.tm_min, start.tm_sec, tag,
                stream + 1, extension);
  return name;
}

bool IsRecordingName(const char* name) {
  struct tm start = {};
  char tag[3];
  char extension[5];
  int number = 0;
  // Nine digits are an int on every machine.
  if (std::sscanf(name, "%2d%2d%2d-%2[asv]-%9d%4s", &start.tm_hour, &start.tm_min, &start.tm_sec, tag, &number,
                  extension) != 6)
    return false;
  const auto isOneOf = [](const char* text, std::initializer_list<const char*> all) {
    return std::any_of(all.begin(), all.end(), [text](const char* one) { return std::strcmp(text, one) == 0; });
  };
  const bool isTime = start.tm_hour >= 0 && start.tm_hour < 24 && start.tm_min >= 0 && start.tm_min < 60 &&
                      start.tm_sec >= 0 && start.tm_sec <= 60;
  return isTime && number > 0 && isOneOf(tag, {"av", "vv", "sv"}) &&
         isOneOf(extension, {".kmv", ".avi", ".mp4"}) && RecordFileName(start, tag, number - 1, extension) == name;
}

std::string PictureFileName(const struct tm& taken, int number) {
  char name[128];
  std::snprintf(name, sizeof name, "%04d%02d%02d_%02d%02d%02d_%d.jpg", taken.tm_year + 1900, taken.tm_mon + 1,
                taken.tm_mday, taken.tm_hour, taken.tm_min, taken.tm_sec, number);
  return name;
}

std::string CopyWords(const std::string& directory, const std::string& name, const std::string& toDirectory,
                      const std::string& toName) {
  return "cp " + ShellWord(directory) + "/" + ShellWord(name) + " " + ShellWord(toDirectory) + "/" +
         ShellWord(toName);
}

std::string InfoPath(const std::string& recordFile) {
  return recordFile + kInfoExtension;
}

std::string RecordNameOf(const std::string& name) {
  constexpr size_t kLength = 5;  // ".info"
  const bool isSideFile = name.size() > kLength && name.compare(name.size() - kLength, kLength, ".info") == 0;
  return isSideFile ? name.substr(0, name.size() - kLength) : name;
}

std::string TypeIndexPath(const std::string& dayDirectory) {
  return JoinPath(dayDirectory, "rec_type.idx");
}

std::string FileListPath(const std::string& dayDirectory) {
  return JoinPath(dayDirectory, "recordfiles.txt");
}

std::string LockFilePath(const struct tm& day, const char* recordFileName) {
  return DevicePath(DayDirectory(kTmpDirectory, day) + recordFileName);
}

std::string LockFilePath(const char* dayAndName) {
  constexpr size_t kLongest = 127;
  const std::string parent = JoinPath(kTmpDirectory, "");
  std::string name = parent + std::string(dayAndName, strnlen(dayAndName, kLongest));
  if (name.size() > kLongest) name.resize(kLongest);
  const size_t slash = name.rfind('/');
  if (slash != std::string::npos && slash >= parent.size()) name.erase(slash, 1);
  return DevicePath(name);
}

NameTime ParseNameTime(const char* dayAndName) {
  const size_t length = strnlen(dayAndName, 16);
  const auto number = [&](size_t position, size_t width) { return Digits(dayAndName, length, position, width); };
  return {number(0, 4), number(4, 2), number(6, 2), number(9, 2), number(11, 2), number(13, 2)};
}

bool ScanDay(const char* text, struct tm& time) {
  int year = 0;
  int month = 0;
  if (std::sscanf(text, "%4d%2d%2d", &year, &month, &time.tm_mday) != 3) return false;
  time.tm_year = year - 1900;
  time.tm_mon = month - 1;
  return true;
}

bool ScanClock(const char* text, struct tm& time) {
  return std::sscanf(text, "%2d%2d%2d", &time.tm_hour, &time.tm_min, &time.tm_sec) == 3;
}

bool IsDayName(const char* name) {
  constexpr size_t kLength = 8;
  if (std::strlen(name) != kLength || std::strspn(name, "0123456789") != kLength) return false;
  const NameTime day = ParseNameTime(name);
  return day.month >= 1 && day.month <= 12 && day.day >= 1 && day.day <= 31;
}

bool ParsePathTime(const std::string& path, struct tm& time) {
  constexpr size_t kDayLength = 8;
  const size_t slash = path.rfind('/');
  if (slash == std::string::npos || slash < kDayLength) return false;
  struct tm parsed = {};
  if (!ScanDay(path.c_str() + slash - kDayLength, parsed) || !ScanClock(path.c_str() + slash + 1, parsed))
    return false;
  time = parsed;
  time.tm_isdst = -1;  // names are local time as the clock showed it, in summer, too
  return true;
}

unsigned int PathStartSecond(const std::string& path) {
  struct tm start;
  if (!ParsePathTime(path, start)) return 0;
  return static_cast<unsigned int>(start.tm_hour * 3600 + start.tm_min * 60 + start.tm_sec);
}

long long PathStartSeconds(const std::string& path, int daylightSaving) {
  struct tm start;
  if (!ParsePathTime(path, start)) return 0;
  return daylightSaving == 0 ? StandardTimeSeconds(start) : FromLocalTime(start);
}

bool IsRecordFileName(const char* name) {
  return std::strstr(name, ".mp4") != nullptr || std::strstr(name, ".avi") != nullptr ||
         std::strstr(name, ".kmv") != nullptr;
}

}  // namespace record
