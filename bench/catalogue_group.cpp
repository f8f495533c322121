// The day catalogue beside a bare open/read/close of the side files.
#include <cstdlib>

#include "bench/day_tree.h"
#include "bench/place.h"
#include "bench/table.h"
#include "record/catalogue.h"

namespace bench {
namespace {

Cost CataloguePass(int day, size_t files) {
  DayRecordMap map;
  const Stopwatch watch;
  const int result = GetDayRecordInfo(kYear, kMonth, day, map);
  const Cost cost = watch.Elapsed();
  if (result != 0 || map.size() != files) std::exit(1);
  Free_MapRecordFileInfo(map);
  return cost;
}

Cost BarePass(const std::vector<std::string>& sideFiles) {
  const Stopwatch watch;
  ReadSideFiles(sideFiles);
  return watch.Elapsed();
}

void CatalogueAt(const Place& place, const Options& options) {
  place.BecomeDevice();
  constexpr int kFew = 1440;
  constexpr int kMany = 14400;
  const std::vector<std::string> few = MakeDay({"/mnt/mmc0", 1, kFew});
  const std::vector<std::string> many = MakeDay({"/mnt/mmc0", 2, kMany});
  std::vector<Contender> contenders = {{"GetDayRecordInfo, 1440 files", [&] { return CataloguePass(1, kFew); }},
                                       {"bare open/read/close, 1440 files", [&] { return BarePass(few); }},
                                       {"GetDayRecordInfo, 14400 files", [&] { return CataloguePass(2, kMany); }},
                                       {"bare open/read/close, 14400", [&] { return BarePass(many); }}};
  TakeTurns(options.rounds, contenders);
  const std::string what = "catalogue, " + place.Kind();
  PrintRatio(what, contenders[0], contenders[1], kFew, {1.5, Measure::kCpu});
  PrintRatio(what, contenders[2], contenders[3], kMany, {1.5, Measure::kCpu});
  PrintFigure(what + ": a file of 14400 against one of 1440 (linear: 1)",
              MedianRatio(contenders[2], contenders[0]).cpu / 10, "x CPU", 1.15);
}

}  // namespace

void CatalogueGroup(const Options& options) {
  PrintHeadline("Day catalogue, per file (side files in the page cache)");
  CatalogueAt(Place("tmpfs", options.memory), options);
  CatalogueAt(Place("disk", options.disk), options);
}

}  // namespace bench
