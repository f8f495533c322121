#include "bench/day_tree.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>

#include "base/clock.h"
#include "record/storage.h"
#include "record/types.h"
#include "storage/layout.h"

namespace bench {

long long MidnightOf(int day) {
  struct tm midnight = {};
  midnight.tm_year = kYear - 1900;
  midnight.tm_mon = kMonth - 1;
  midnight.tm_mday = day;
  return record::StandardTimeSeconds(midnight);
}

std::string DayDirectoryOn(const std::string& medium, int day) {
  return DevicePath(medium) + "/schedule/" + record::DayName(kYear, kMonth, day);
}

std::vector<std::string> MakeDay(const DayFiles& what) {
  const std::string directory = DayDirectoryOn(what.medium, what.day);
  std::filesystem::create_directories(directory);
  const int span = kSecondsPerDay / what.files;
  RecordInfoStruct info = {};
  info.nTimeSeconds = static_cast<std::uint32_t>(span);
  info.videoFrames = info.audioFrames = span * 25;
  std::vector<std::string> sideFiles;
  for (int i = what.turn; i < what.files; i += what.media) {
    const time_t start = static_cast<time_t>(MidnightOf(what.day)) + i * span;
    info.startSeconds = static_cast<std::uint32_t>(start);
    info.endSeconds = info.startSeconds + info.nTimeSeconds;
    const std::string path =
        record::JoinPath(directory, record::RecordFileName(record::LocalTime(start), "av", 0, ".kmv"));
    if (what.content == nullptr)
      std::ofstream(path).put('\0');
    else
      std::filesystem::create_hard_link(what.content, path);
    sideFiles.push_back(record::InfoPath(path));
    std::ofstream(sideFiles.back(), std::ios::binary).write(reinterpret_cast<const char*>(&info), sizeof info);
  }
  return sideFiles;
}

void ReadSideFiles(const std::vector<std::string>& sideFiles) {
  RecordInfoStruct info;
  std::string parent;
  int directory = AT_FDCWD;
  for (const std::string& path : sideFiles) {
    const size_t name = path.rfind('/') + 1;
    if (path.compare(0, name, parent) != 0) {
      if (directory != AT_FDCWD) close(directory);
      parent = path.substr(0, name);
      directory = open(parent.c_str(), O_PATH | O_DIRECTORY);
    }
    const int file = openat(directory, path.c_str() + name, O_RDONLY);
    if (read(file, &info, sizeof info) != sizeof info) std::exit(1);
    close(file);
  }
  if (directory != AT_FDCWD) close(directory);
}

}  // namespace bench
