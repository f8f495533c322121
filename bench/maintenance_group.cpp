// Finding the oldest files beside one bare scan. The fixed waits of the scans are counted, not waited.
#include <dirent.h>
#include <sys/stat.h>
#include <sys/time.h>

#include <cstdio>
#include <cstdlib>
#include <list>

#include "base/clock.h"
#include "bench/day_tree.h"
#include "bench/place.h"
#include "bench/table.h"
#include "record/maintenance.h"
#include "record/storage.h"

namespace bench {
namespace {

constexpr int kDays = 10;
constexpr int kRecordsADay = 1000;  // and as many side files
constexpr int kFewDays = 2;
constexpr unsigned kWanted = 100;

// Sleeps are added up instead.
class CountedWaits {
 public:
  CountedWaits() {
    g_waitedUs = 0;
    record::SetClockSource(&kSource);
  }
  ~CountedWaits() { record::SetClockSource(nullptr); }
  CountedWaits(const CountedWaits&) = delete;
  CountedWaits& operator=(const CountedWaits&) = delete;

  static double Seconds() { return static_cast<double>(g_waitedUs) * 1e-6; }

 private:
  static record::WallTime Now() {
    struct timeval now;
    gettimeofday(&now, nullptr);
    return {static_cast<long long>(now.tv_sec), static_cast<int>(now.tv_usec)};
  }
  static void Count(long long microseconds) { g_waitedUs += microseconds; }

  static long long g_waitedUs;
  static constexpr record::ClockSource kSource = {Now, Count, nullptr};
};
long long CountedWaits::g_waitedUs = 0;

size_t BareScan(const std::string& path) {
  size_t files = 0;
  DIR* directory = opendir(path.c_str());
  if (directory == nullptr) std::exit(1);
  while (const struct dirent* entry = readdir(directory)) {
    if (entry->d_name[0] == '.') continue;
    const std::string child = path + "/" + entry->d_name;
    struct stat status;
    if (lstat(child.c_str(), &status) != 0) std::exit(1);
    files += S_ISDIR(status.st_mode) ? BareScan(child) : 1;
  }
  closedir(directory);
  return files;
}

// It is done once it has as many as it is to find: the oldest days.
template <unsigned wanted>
size_t FindOldest(std::string medium) {
  OldFileInfo_s* file = FindOldFiles(medium.data(), wanted, nullptr);
  size_t count = 0;
  for (OldFileInfo_s* next; file != nullptr; file = next, ++count) {
    next = file->next;
    std::free(file);
  }
  return count;
}

size_t ListOldest(const std::string& medium) {
  std::list<_VrRecordFileInfo> files;
  GetOldFileList(medium.c_str(), files, kWanted);
  return files.size();
}

template <typename Scan>
Cost Pass(const std::string& medium, const Scan& scan, size_t expected) {
  const CountedWaits waits;
  const Stopwatch watch;
  if (scan(medium) != expected) std::exit(1);
  return watch.Elapsed();
}

template <typename Scan>
void PrintWaits(const std::string& name, const std::string& medium, const Scan& scan) {
  {
    const CountedWaits waits;
    scan(medium);
    PrintFigure(name + ": fixed waits asked for", CountedWaits::Seconds(), "s");
  }
  const Stopwatch watch;
  scan(medium);
  PrintFigure(name + ": with the waits", watch.Elapsed().wall, "s");
}

void MaintenanceAt(const Place& place, const Options& options) {
  place.BecomeDevice();
  for (int day = 1; day <= kDays; ++day) MakeDay({"/mnt/mmc0", day, kRecordsADay});
  for (int day = 1; day <= kFewDays; ++day) MakeDay({"/mnt/mmc1", day, kRecordsADay});
  const std::string many = DevicePath("/mnt/mmc0");
  const std::string few = DevicePath("/mnt/mmc1");
  constexpr size_t kFiles = 2 * kDays * kRecordsADay;
  constexpr size_t kFewFiles = 2 * kFewDays * kRecordsADay;
  std::vector<Contender> contenders = {
      {"FindOldFiles of all", [&] { return Pass(many, FindOldest<kFiles>, kFiles); }},
      {"GetOldFileList", [&] { return Pass(many, ListOldest, kWanted + 1); }},
      {"FindOldFiles of all, 4000 files", [&] { return Pass(few, FindOldest<kFiles>, kFewFiles); }},
      {"GetOldFileList, 4000 files", [&] { return Pass(few, ListOldest, kWanted + 1); }},
      {"FindOldFiles of 100", [&] { return Pass(many, FindOldest<kWanted>, kWanted); }},
      {"bare readdir and lstat", [&] { return Pass(many, BareScan, kFiles); }}};
  TakeTurns(options.rounds, contenders);
  const Contender& bare = contenders.back();
  constexpr double kTimesMore = static_cast<double>(kDays) / kFewDays;
  for (size_t i = 0; i < 2; ++i) {
    const std::string what = contenders[i].name + ", " + place.Kind();
    PrintRatio(what, contenders[i], bare, kFiles, {2.0, Measure::kCpu});
    PrintFigure(what + ": a file of 20000 against one of 4000 (linear: 1)",
                MedianRatio(contenders[i], contenders[2 + i]).cpu / kTimesMore, "x CPU", 1.15);
  }
  PrintRatio(contenders[4].name + ", " + place.Kind(), contenders[4], bare, kFiles, {});
  PrintWaits("FindOldFiles of all, " + place.Kind(), many, FindOldest<kFiles>);
  PrintWaits("GetOldFileList, " + place.Kind(), many, ListOldest);
}

}  // namespace

void MaintenanceGroup(const Options& options) {
  PrintHeadline("The oldest of 20000 files, per file (fixed waits apart)");
  MaintenanceAt(Place("tmpfs", options.memory), options);
  MaintenanceAt(Place("disk", options.disk), options);
}

}  // namespace bench
