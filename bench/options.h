// What the command line settles, and the groups that it chooses from.
#ifndef BENCH_OPTIONS_H
#define BENCH_OPTIONS_H

#include <string>

namespace bench {

struct Options {
  int rounds = 9;
  int clipSeconds = 20;      // of video that one writing or reading pass handles
  int longSeconds = 1800;    // of the files that are sought in: 900 MB
  int realtimeSeconds = 10;  // of one real-time round, and of playback
  int days = 30;             // of the month that is looked through
  int exportSeconds = 600;   // that one export copies, ten minutes at most
  std::string memory = "/dev/shm";
  std::string disk = "/var/tmp";
  std::string probeDirectory;  // set: be the process that a real-time round measures
  int channels = 1;
};

int RealtimeProbe(const std::string& directory, int channels, int seconds);

void WriteGroup(const Options& options);
void ReadGroup(const Options& options);
void SeekGroup(const Options& options);
void RealtimeGroup(const Options& options);
void CatalogueGroup(const Options& options);
void LookupGroup(const Options& options);
void MaintenanceGroup(const Options& options);
void PlayGroup(const Options& options);
void ExportGroup(const Options& options);

}  // namespace bench

#endif
