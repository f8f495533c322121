// Measures the library beside the physical limit and beside libavformat, and prints a table of ratios.
#include <getopt.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "bench/options.h"
#include "bench/table.h"

namespace {

using bench::Options;

constexpr struct {
  const char* name;
  void (*run)(const Options&);
} kGroups[] = {{"write", bench::WriteGroup},
               {"read", bench::ReadGroup},
               {"seek", bench::SeekGroup},
               {"realtime", bench::RealtimeGroup},
               {"catalogue", bench::CatalogueGroup},
               {"lookup", bench::LookupGroup},
               {"maintenance", bench::MaintenanceGroup},
               {"play", bench::PlayGroup},
               {"export", bench::ExportGroup}};

int Usage() {
  std::fprintf(stderr,
               "usage: record_bench [options] [group...]\n"
               "  groups: write read seek realtime catalogue lookup maintenance play export (default: all)\n"
               "  --rounds N      rounds of every comparison (9)\n"
               "  --clip S        seconds of video that a writing or reading pass handles (20)\n"
               "  --long S        seconds of the files that are sought in (1800: 900 MB)\n"
               "  --realtime S    seconds of a real-time round, and of playback (10)\n"
               "  --days N        days of the month that is looked through (30, at most)\n"
               "  --export S      seconds that an export copies (600, at most 600)\n"
               "  --memory DIR    a directory on tmpfs (/dev/shm)\n"
               "  --disk DIR      a directory on disk ($BENCH_DISK, else /var/tmp)\n");
  return 2;
}

bool Parse(int argc, char** argv, Options& options) {
  static const struct option kOptions[] = {{"rounds", required_argument, nullptr, 'r'},
                                           {"clip", required_argument, nullptr, 'c'},
                                           {"long", required_argument, nullptr, 'l'},
                                           {"realtime", required_argument, nullptr, 't'},
                                           {"days", required_argument, nullptr, 'a'},
                                           {"export", required_argument, nullptr, 'e'},
                                           {"memory", required_argument, nullptr, 'm'},
                                           {"disk", required_argument, nullptr, 'd'},
                                           {"probe", required_argument, nullptr, 'p'},
                                           {"channels", required_argument, nullptr, 'n'},
                                           {nullptr, 0, nullptr, 0}};
  int chosen;
  while ((chosen = getopt_long(argc, argv, "", kOptions, nullptr)) != -1) {
    switch (chosen) {
      case 'r':
        options.rounds = std::atoi(optarg);
        break;
      case 'c':
        options.clipSeconds = std::atoi(optarg);
        break;
      case 'l':
        options.longSeconds = std::atoi(optarg);
        break;
      case 't':
        options.realtimeSeconds = std::atoi(optarg);
        break;
      case 'a':
        options.days = std::atoi(optarg);
        break;
      case 'e':
        options.exportSeconds = std::atoi(optarg);
        break;
      case 'm':
        options.memory = optarg;
        break;
      case 'd':
        options.disk = optarg;
        break;
      case 'p':
        options.probeDirectory = optarg;
        break;
      case 'n':
        options.channels = std::atoi(optarg);
        break;
      default:
        return false;
    }
  }
  return options.rounds > 0 && options.clipSeconds > 1 && options.longSeconds > 9 && options.realtimeSeconds > 0 &&
         options.days > 0 && options.days <= 30 && options.exportSeconds >= 20 && options.exportSeconds <= 600;
}

bool IsWanted(const char* group, int argc, char** argv) {
  for (int i = optind; i < argc; ++i) {
    if (std::strcmp(argv[i], group) == 0) return true;
  }
  return optind == argc;
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  if (const char* disk = std::getenv("BENCH_DISK")) options.disk = disk;
  if (!Parse(argc, argv, options)) return Usage();
  if (!options.probeDirectory.empty())
    return bench::RealtimeProbe(options.probeDirectory, options.channels, options.realtimeSeconds);
  for (const auto& group : kGroups) {
    if (IsWanted(group.name, argc, argv)) group.run(options);
  }
  std::printf("\nGoals missed: %d\n", bench::MissedGoals());
  return 0;
}
