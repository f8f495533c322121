// The smallest application of librecord on the host platform: a device tree below a directory of its own,
// where a scheduled recording would go, and what was recorded today.
//
//   cmake -S examples/minimal -B out -DCMAKE_PREFIX_PATH=PREFIX && cmake --build out
//   g++ -std=c++17 minimal.cpp $(pkg-config --cflags --libs librecord-host)
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <memory>

#include "record/record.h"
#include "record_host/host.h"

namespace {

bool PrintDestination() {
  RecordConfig config{};
  config.local_enable = 1;
  const std::unique_ptr<char[]> path(GetStoragePath(&config, RECORD_KIND_SCHEDULE, 1));
  if (!path) {
    std::fprintf(stderr, "no medium has room\n");
    return false;
  }
  std::printf("a scheduled recording goes to %s\n", path.get());
  return true;
}

bool PrintToday() {
  const std::time_t now = std::time(nullptr);
  struct tm day {};
  localtime_r(&now, &day);
  DayRecordMap files;
  if (GetDayRecordInfo(day.tm_year + 1900, day.tm_mon + 1, day.tm_mday, files) != 0) return false;
  std::printf("recorded today: %zu files\n", files.size());
  for (const auto& [second, file] : files) {
    std::printf("%5u s to %5u s  %s\n", second, file->nEndSecond, RecordFilePath(*file).c_str());
  }
  Free_MapRecordFileInfo(files);
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  HostLogLevel(-1);  // 7 shows what the library does
  if (SetDeviceRoot(argc > 1 ? argv[1] : "recordings") != 0) return 1;
  // Below a device root a directory that exists counts as a mounted medium: this is the first card.
  std::error_code error;
  std::filesystem::create_directories(DevicePath("/mnt/mmc0"), error);
  return PrintDestination() && PrintToday() ? 0 : 1;
}
