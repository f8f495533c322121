// Recording in real time: what a channel costs in CPU, threads and memory.
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "bench/av_file.h"
#include "bench/child.h"
#include "bench/place.h"
#include "bench/table.h"

namespace bench {
namespace {

constexpr int kFfmpegStart = 2;  // seconds of the short run, which pays for the start-up too

struct Probe {
  double record = 0;  // CPU seconds
  double sync = 0;
  double feeder = 0;
  double bare = 0;
  int threads = 0;
  long kib = 0;
};

FILE* StartProbe(const std::string& directory, int channels, int seconds) {
  std::filesystem::create_directories(directory);
  const std::string command = "/proc/" + std::to_string(getpid()) + "/exe --probe '" + directory +
                              "' --channels " + std::to_string(channels) + " --realtime " +
                              std::to_string(seconds);
  return popen(command.c_str(), "r");
}

Probe FinishProbe(const std::string& directory, FILE* pipe) {
  Probe probe;
  const int fields = pipe == nullptr ? 0
                                     : std::fscanf(pipe, "%lf %lf %lf %lf %d %ld", &probe.record, &probe.sync,
                                                   &probe.feeder, &probe.bare, &probe.threads, &probe.kib);
  if (pipe == nullptr || pclose(pipe) != 0 || fields != 6) {
    std::fprintf(stderr, "record_bench: the real-time process failed\n");
    std::exit(1);
  }
  std::filesystem::remove_all(directory);
  return probe;
}

pid_t StartFfmpeg(const std::string& input, int seconds, const std::string& output) {
  return StartProgram({"ffmpeg", "-nostdin", "-v", "quiet", "-re", "-i", input, "-t", std::to_string(seconds),
                       "-c", "copy", "-f", "segment", "-segment_time", "60", output});
}

// What runs at one place during a round.
class PlaceRound {
 public:
  PlaceRound(const Place& place, int seconds)
      : m_directory(place.File("probe")),
        m_short(StartFfmpeg(place.File(kInput), kFfmpegStart, place.File("short%03d.mkv"))),
        m_long(StartFfmpeg(place.File(kInput), kFfmpegStart + seconds, place.File("long%03d.mkv"))),
        m_pipe(StartProbe(m_directory, 1, seconds)) {}

  Probe Library() { return FinishProbe(m_directory, m_pipe); }
  // CPU seconds with the start-up taken off; 0 when ffmpeg failed.
  double Ffmpeg() {
    const ChildUse shortUse = FinishChild(m_short);
    const ChildUse longUse = FinishChild(m_long);
    return shortUse.ok && longUse.ok ? longUse.cost.cpu - shortUse.cost.cpu : 0;
  }

  static constexpr const char* kInput = "camera.mkv";

 private:
  std::string m_directory;
  pid_t m_short;
  pid_t m_long;
  FILE* m_pipe;
};

class PlaceTable {
 public:
  PlaceTable(const Place& place, int seconds) : m_place(place), m_wall(seconds) {
    MakeAvFile("matroska", "", place.File(PlaceRound::kInput), Clip(kFfmpegStart + seconds + 2));
  }

  void Add(PlaceRound& round) {
    const Probe probe = round.Library();
    const double ffmpeg = round.Ffmpeg();
    m_record.rounds.push_back({probe.record, m_wall});
    m_process.rounds.push_back({probe.record + probe.sync, m_wall});
    m_bare.rounds.push_back({probe.bare, m_wall});
    m_ffmpeg.rounds.push_back({ffmpeg, m_wall});
    m_hasFfmpeg = m_hasFfmpeg && ffmpeg > 0;
    m_threads = probe.threads;
  }

  void Print() const {
    const std::string& where = m_place.Kind();
    PrintRatio("record thread, " + where, m_record, m_bare, m_wall, {1.5, Measure::kCpu});
    if (m_hasFfmpeg) {
      PrintRatio("with sync thread, " + where, m_process, m_ffmpeg, m_wall, {0.5, Measure::kCpu});
      PrintRatio("bare thread, " + where, m_bare, m_ffmpeg, m_wall, {});
    } else {
      PrintNote("ffmpeg could not be measured: its rows are left out");
    }
    PrintFigure("record and sync thread, " + where, MedianCost(m_process).cpu / m_wall * 100, "% of a core");
    PrintFigure("threads of the library, " + where, m_threads, "(one of them syncs for all)");
  }

 private:
  const Place& m_place;
  double m_wall;
  Contender m_record = {"record thread", {}};
  Contender m_process = {"record and sync thread", {}};
  Contender m_bare = {"bare thread waking every 5 ms", {}};
  Contender m_ffmpeg = {"ffmpeg -re -c copy -f segment", {}};
  bool m_hasFfmpeg = true;
  int m_threads = 0;
};

void MemoryOf(const Place& place) {
  constexpr int kSeconds = 2;
  const std::string directory = place.File("probe");
  long one = 0;
  for (const int channels : {1, 2, 4, 8}) {
    const Probe probe = FinishProbe(directory, StartProbe(directory, channels, kSeconds));
    const std::string what = std::to_string(channels) + " channels: memory of the process";
    PrintFigure(what, static_cast<double>(probe.kib) / 1024, "MiB");
    if (channels == 1) one = probe.kib;
    if (channels == 8)
      PrintFigure("a further channel", static_cast<double>(probe.kib - one) / 7 / 1024, "MiB", 2.0);
  }
}

}  // namespace

// All of a round runs at the same time, so that whatever else the machine does meets everybody alike.
void RealtimeGroup(const Options& options) {
  PrintHeadline("One channel in real time (25 frames/s, G.711); us CPU is for a second of recording");
  const Place memory("tmpfs", options.memory);
  const Place disk("disk", options.disk);
  PlaceTable onMemory(memory, options.realtimeSeconds);
  PlaceTable onDisk(disk, options.realtimeSeconds);
  for (int i = 0; i < options.rounds; ++i) {
    PlaceRound memoryRound(memory, options.realtimeSeconds);
    PlaceRound diskRound(disk, options.realtimeSeconds);
    onMemory.Add(memoryRound);
    onDisk.Add(diskRound);
  }
  onMemory.Print();
  onDisk.Print();
  MemoryOf(memory);
}

}  // namespace bench
