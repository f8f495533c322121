// What `recordctl find` and `minutes` ask, over a month on four media, beside the bare directory and file reads.
#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>

#include "base/device_path.h"
#include "bench/day_tree.h"
#include "bench/place.h"
#include "bench/table.h"
#include "record/lookups.h"
#include "record/platform.h"
#include "record/storage.h"
#include "storage/layout.h"
#include "storage/type_index.h"

namespace bench {
namespace {

constexpr int kFilesADay = 1440;
constexpr int kMoreFilesADay = 14400;  // of one more day, which tells whether the cost is linear

// The lookups also print on standard output: that goes nowhere meanwhile, but is paid for.
class SilentOutput {
 public:
  SilentOutput() : m_kept(dup(STDOUT_FILENO)) {
    std::fflush(stdout);
    const int nothing = open("/dev/null", O_WRONLY | O_CLOEXEC);
    dup2(nothing, STDOUT_FILENO);
    close(nothing);
  }
  ~SilentOutput() {
    std::fflush(stdout);
    dup2(m_kept, STDOUT_FILENO);
    close(m_kept);
  }
  SilentOutput(const SilentOutput&) = delete;
  SilentOutput& operator=(const SilentOutput&) = delete;

 private:
  int m_kept;
};

// A day as the lookups meet it: its directories on all media, side files and type indexes.
struct Day {
  int day;
  std::vector<std::string> directories;
  std::vector<std::string> sideFiles;
  std::vector<std::string> typeIndexes;
};

std::vector<std::string> Media() {
  std::vector<std::string> media(std::begin(record::kMediumRoots), std::end(record::kMediumRoots));
  char serial[32] = "";
  GetSN(serial, sizeof serial);
  media.back() += std::string("/") + serial;  // a share keeps each device's recordings apart
  return media;
}

Day MakeSpreadDay(int day, int files) {
  Day made = {day, {}, {}, {}};
  const std::vector<std::string> media = Media();
  const auto count = static_cast<int>(media.size());
  for (int turn = 0; turn < count; ++turn) {
    const std::string& medium = media[static_cast<size_t>(turn)];
    for (const std::string& path : MakeDay({medium, day, files, count, turn})) made.sideFiles.push_back(path);
    made.directories.push_back(DayDirectoryOn(medium, day));
    made.typeIndexes.push_back(record::TypeIndexPath(made.directories.back()));
    std::ofstream(made.typeIndexes.back()) << std::string(record::kTypeIndexMinutes, 'A');
  }
  return made;
}

void ListDirectory(const std::string& path) {
  DIR* directory = opendir(path.c_str());
  if (directory == nullptr) std::exit(1);
  while (readdir(directory) != nullptr) {
  }
  closedir(directory);
}

void ReadDay(const Day& day, bool withIndexes) {
  for (const std::string& path : day.directories) ListDirectory(path);
  ReadSideFiles(day.sideFiles);
  if (!withIndexes) return;
  char minutes[record::kTypeIndexMinutes];
  for (const std::string& path : day.typeIndexes) {
    const int file = open(path.c_str(), O_RDONLY);
    if (read(file, minutes, sizeof minutes) != sizeof minutes) std::exit(1);
    close(file);
  }
}

// The second moves through the day with the days.
void Find(const Day& day) {
  const int second = day.day * 40009 % kSecondsPerDay;
  std::string path;
  unsigned offset = 0;
  if (GetRecordFileAndOffset(kYear, kMonth, day.day, second / 3600, second / 60 % 60, second % 60, path, offset) !=
      0)
    std::exit(1);
}

void Minutes(const Day& day) {
  char minutes[record::kTypeIndexMinutes];
  if (GetRecordDistribute(kYear, kMonth, day.day, minutes) != 0 || minutes[0] != 'A') std::exit(1);
}

template <typename Work>
Cost EveryDay(const std::vector<Day>& days, const Work& work) {
  const SilentOutput silent;
  const Stopwatch watch;
  for (const Day& day : days) work(day);
  return watch.Elapsed();
}

void LookupsAt(const Place& place, const Options& options) {
  place.BecomeDevice();
  std::vector<Day> month;
  for (int day = 1; day <= options.days; ++day) month.push_back(MakeSpreadDay(day, kFilesADay));
  const std::vector<Day> fullDay = {MakeSpreadDay(options.days + 1, kMoreFilesADay)};
  std::vector<Contender> contenders = {
      {"find", [&] { return EveryDay(month, Find); }},
      {"bare readdir, open/read/close",
       [&] { return EveryDay(month, [](const Day& day) { ReadDay(day, false); }); }},
      {"minutes", [&] { return EveryDay(month, Minutes); }},
      {"the same and the type indexes",
       [&] { return EveryDay(month, [](const Day& day) { ReadDay(day, true); }); }},
      {"find, 14400 files a day", [&] { return EveryDay(fullDay, Find); }},
      {"minutes, 14400 files a day", [&] { return EveryDay(fullDay, Minutes); }}};
  TakeTurns(options.rounds, contenders);
  const double files = static_cast<double>(kFilesADay) * options.days;
  for (size_t i = 0; i < 4; i += 2) {
    const std::string what = contenders[i].name + ", " + place.Kind();
    PrintRatio(what, contenders[i], contenders[i + 1], files, {1.3, Measure::kCpu});
    PrintFigure(what + ": a file of 14400 a day against one of 1440 (linear: 1)",
                MedianRatio(contenders[4 + i / 2], contenders[i]).cpu * files / kMoreFilesADay, "x CPU", 1.15);
  }
}

}  // namespace

void LookupGroup(const Options& options) {
  PrintHeadline("Lookups over " + std::to_string(options.days) + " days of 1440 files on four media, per file");
  LookupsAt(Place("tmpfs", options.memory), options);
  LookupsAt(Place("disk", options.disk), options);
}

}  // namespace bench
