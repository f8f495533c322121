// Days full of record files, as they lie on media.
#ifndef BENCH_DAY_TREE_H
#define BENCH_DAY_TREE_H

#include <string>
#include <vector>

namespace bench {

constexpr int kSecondsPerDay = 86400;
constexpr int kYear = 2024;
constexpr int kMonth = 1;

// Midnight of a day of the month, seconds since 1970.
long long MidnightOf(int day);
// "<device root>/mnt/mmc0/schedule/YYYYMMDD" for medium "/mnt/mmc0".
std::string DayDirectoryOn(const std::string& medium, int day);

// Finished files one behind the other, each as long as the distance to the next one.
struct DayFiles {
  std::string medium = "/mnt/mmc0";
  int day = 1;
  int files = 1440;
  int media = 1;  // that the day's files are spread over in turn: this medium holds every so-manieth
  int turn = 0;   // which of them it is
  const char* content = nullptr;  // a record file that all of them are hard links of; null: one byte each
};
// Makes them; the paths of their side files.
std::vector<std::string> MakeDay(const DayFiles& what);

// What a catalogue cannot do without: every side file opened below its directory, read and closed. Those of one
// directory follow one another.
void ReadSideFiles(const std::vector<std::string>& sideFiles);

}  // namespace bench

#endif
