// Exports beside `ffmpeg -c copy` and `cp`, and what they take of memory. Everything runs in a process of its own.
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <utility>

#include "bench/child.h"
#include "bench/day_tree.h"
#include "bench/place.h"
#include "bench/recording.h"
#include "bench/table.h"
#include "record/export.h"
#include "record/storage.h"

namespace bench {
namespace {

constexpr int kDay = 1;
constexpr int kLapseDay = 2;
constexpr int kFirstHour = 8;
constexpr int kLapseSeconds = 120;
constexpr unsigned kLapseFrames = kLapseSeconds * kFramesPerSecond;

// A virtual machine that has given free memory back to its host pays for it at the next touch, and whoever comes
// first would pay for all. So room for an output is touched ahead of every pass.
void FetchMemory() {
  constexpr size_t kBytes = size_t{2} << 30;
  void* memory = mmap(nullptr, kBytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_POPULATE, -1, 0);
  if (memory != MAP_FAILED) munmap(memory, kBytes);
}

// How an export came out.
class Outcome {
 public:
  static void Note(const ExportProgress& progress, void* self) {
    auto& outcome = *static_cast<Outcome*>(self);
    const std::lock_guard<std::mutex> lock(outcome.m_mutex);
    outcome.m_last = progress;
    if (progress.state != EXPORT_RUNNING) outcome.m_changed.notify_all();
  }
  ExportProgress AwaitEnd() {
    std::unique_lock<std::mutex> lock(m_mutex);
    m_changed.wait(lock, [this] { return m_last.state != EXPORT_RUNNING; });
    return m_last;
  }

 private:
  std::mutex m_mutex;
  std::condition_variable m_changed;
  ExportProgress m_last = {};
};

DayTimeSpan SpanFrom(int hour, int seconds) {
  const int end = hour * 3600 + seconds;
  const auto part = [](int value) { return static_cast<unsigned char>(value); };
  return {part(hour), 0, 0, part(end / 3600), part(end / 60 % 60), part(end % 60)};
}

// 0 when it is complete and holds at least that many pictures.
template <typename Job>
int Run(Job& job, unsigned frames) {
  Outcome outcome;
  job.SetProgressHook(Outcome::Note, &outcome);
  if (job.Start() != 0) return 1;
  const ExportProgress end = outcome.AwaitEnd();
  job.Stop();
  return end.state == EXPORT_COMPLETE && end.videoFrames >= frames ? 0 : 1;
}

int ExportSpan(const DayTimeSpan& span, const std::string& output, unsigned frames) {
  CExportRecord job(1, kYear, kMonth, kDay, span, output, nullptr);
  return Run(job, frames);
}

int ExportLapse(const DayTimeSpan& span, const std::string& output, unsigned frames) {
  CExportTimelapse job(1, kLapseSeconds, kYear, kMonth, kLapseDay, span, output, nullptr);
  return Run(job, frames);
}

// The sources of all containers, one hour apart, and the ways to copy them.
class Exports {
 public:
  Exports(const Place& place, int seconds) : m_place(place), m_seconds(seconds) {
    const Clip clip(seconds);
    for (const Container container : kContainers) {
      const long long start = MidnightOf(kDay) + HourOf(container) * 3600LL;
      m_sources.push_back(RecordAt(container, DayDirectoryOn("/mnt/mmc0", kDay), start, clip));
    }
  }

  Contender Library(Container container) {
    return {std::string("export of ") + NameOf(container),
            [this, container] { return Export(container, m_seconds).cost; }};
  }
  // libavformat reads no KMV: there it copies the same frames out of MP4.
  Contender Ffmpeg(Container container) const {
    const bool isKmv = container == Container::kKmv;
    const std::string source = SourceOf(isKmv ? Container::kMp4 : container);
    return {std::string("ffmpeg -c copy of ") + (isKmv ? "the same in MP4" : NameOf(container)),
            [this, source] { return FfmpegPass(source, {}); }};
  }
  Contender FfmpegStart() const {
    return {"ffmpeg", [this] { return FfmpegPass(SourceOf(Container::kMp4), {"-frames:v", "1", "-an"}); }};
  }
  Contender Cp(Container container) const {
    const std::string source = SourceOf(container);
    return {"cp of the same bytes", [this, source] { return Cleaned(RunProgram({"cp", source, m_output})).cost; }};
  }

  ChildUse Export(Container container, int seconds) const {
    const auto frames = static_cast<unsigned>(seconds * kFramesPerSecond);
    return Cleaned(
        RunChild("an export", [&] { return ExportSpan(SpanFrom(HourOf(container), seconds), m_output, frames); }));
  }
  ChildUse Lapse(int hours, unsigned frames) const {
    return Cleaned(
        RunChild("a time lapse", [&] { return ExportLapse(SpanFrom(0, hours * 3600), m_output, frames); }));
  }

 private:
  static int HourOf(Container container) { return kFirstHour + static_cast<int>(container); }
  const std::string& SourceOf(Container container) const { return m_sources[static_cast<size_t>(container)]; }

  Cost FfmpegPass(const std::string& source, const std::vector<std::string>& more) const {
    std::vector<std::string> words = {"ffmpeg", "-nostdin", "-v", "quiet", "-y", "-i", source, "-c", "copy"};
    words.insert(words.end(), more.begin(), more.end());
    words.insert(words.end(), {"-f", "mov", m_output});
    return Cleaned(RunProgram(words)).cost;
  }
  ChildUse Cleaned(const ChildUse& use) const {
    unlink(m_output.c_str());
    return use;
  }

  const Place& m_place;
  const int m_seconds;
  const std::string m_output = m_place.File("out.mp4");
  std::vector<std::string> m_sources;
};

void AgainstOthers(Exports& exports, const Options& options, const std::string& where) {
  std::vector<Contender> contenders;
  for (const Container container : kContainers) {
    contenders.push_back(exports.Library(container));
    contenders.push_back(exports.Ffmpeg(container));
    contenders.push_back(exports.Cp(container));
  }
  contenders.push_back(exports.FfmpegStart());
  for (Contender& each : contenders) {
    each.pass = [pass = std::move(each.pass)] {
      FetchMemory();
      return pass();
    };
  }
  TakeTurns(options.rounds, contenders);
  for (size_t i = 0; i + 2 < contenders.size(); i += 3) {
    const std::string what = contenders[i].name + ", " + where;
    PrintRatio(what, contenders[i], contenders[i + 1], options.exportSeconds, {0.8, Measure::kCpu});
    PrintRatio(what, contenders[i], contenders[i + 2], options.exportSeconds, {1.6, Measure::kCpu});
  }
  PrintFigure("start of ffmpeg, a frame copied, " + where + ": CPU", MedianCost(contenders.back()).cpu * 1e3,
              "ms, in its rows above");
}

double Mib(const ChildUse& use) {
  return static_cast<double>(use.peakKib) / 1024;
}

void Memory(const Exports& exports, const Options& options, const std::string& where) {
  const double nothing = Mib(RunChild("nothing", [] { return 0; }));
  PrintFigure("peak memory, " + where + ": a process that exports nothing", nothing, "MiB");
  for (const Container container : kContainers) {
    const std::string what = std::string("peak memory, ") + where + ": " + NameOf(container) + ", ";
    const double brief = Mib(exports.Export(container, options.exportSeconds / 10));
    const double whole = Mib(exports.Export(container, options.exportSeconds));
    PrintFigure(what + std::to_string(options.exportSeconds / 10) + " s", brief, "MiB");
    PrintFigure(what + std::to_string(options.exportSeconds) + " s", whole, "MiB");
  }
}

void Lapses(const Exports& exports, const std::string& where) {
  constexpr int kHours[] = {1, 6, 24};
  for (const int hours : kHours) {
    // An hour has fewer key frames than the film wants pictures.
    const ChildUse use = exports.Lapse(hours, std::min(kLapseFrames, hours * 1800U) * 9 / 10);
    const std::string what = "time lapse of " + std::to_string(hours) + " h, a file a minute, " + where + ": ";
    PrintFigure(what + "CPU", use.cost.cpu, "s");
    PrintFigure(what + "wall", use.cost.wall, "s");
    PrintFigure(what + "peak memory", Mib(use), "MiB");
  }
}

void ExportsAt(const Place& place, const Options& options) {
  place.BecomeDevice();
  Exports exports(place, options.exportSeconds);
  const std::string minute = place.File("minute.kmv");
  MakeRecordFile(Container::kKmv, minute, Clip(60), true);
  MakeDay({"/mnt/mmc0", kLapseDay, kSecondsPerDay / 60, 1, 0, minute.c_str()});
  AgainstOthers(exports, options, place.Kind());
  Memory(exports, options, place.Kind());
  Lapses(exports, place.Kind());
}

}  // namespace

// What counts here is CPU time. On disk that of the library holds the syncing of the output; the others leave
// theirs to the kernel.
void ExportGroup(const Options& options) {
  PrintHeadline("Exports of " + std::to_string(options.exportSeconds) + " s into MP4, per second of it");
  ExportsAt(Place("tmpfs", options.memory), options);
  ExportsAt(Place("disk", options.disk), options);
}

}  // namespace bench
