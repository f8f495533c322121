// Getting somewhere: seeks, opening, and files that lost their tail.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <memory>

#include "bench/av_file.h"
#include "bench/bare.h"
#include "bench/place.h"
#include "bench/recording.h"
#include "bench/table.h"
#include "format/kmv/kmv_format.h"
#include "record/video_file.h"

namespace bench {
namespace {

constexpr int kWarmSeeks = 2000;
constexpr int kColdSeeks = 40;
constexpr int kWarmOpens = 5;

unsigned long g_sum;

// Closes a descriptor at the end of a scope.
class File {
 public:
  explicit File(const std::string& path) : m_file(open(path.c_str(), O_RDONLY)) {}
  ~File() { close(m_file); }
  File(const File&) = delete;
  File& operator=(const File&) = delete;
  int Descriptor() const { return m_file; }

 private:
  int m_file;
};

void OneFrame(CVideoFile& file) {
  unsigned char* data;
  long owned, video, key;
  unsigned long ms;
  const int length = file.GetMediaFrame(&data, owned, video, key, ms);
  if (length <= 0) std::exit(1);
  g_sum += data[0] + data[length - 1];
  if (owned != 0) delete[] data;
}

// The files of one place, and the passes over them. Every pass seeks to the same seconds as its rivals'.
class LongFiles {
 public:
  LongFiles(const Place& place, const Options& options)
      : m_place(place), m_seconds(options.longSeconds), m_slots(record::kKmvIndexSlots) {
    const Clip clip(m_seconds);
    MakeRecordFile(Container::kKmv, Kmv(), clip, true);
    MakeRecordFile(Container::kKmv, Cut(), clip, false);
    MakeAvFile("matroska", "", Mkv(), clip);
    MakeAvFile("mov", "", Mp4(), clip);
    sync();
    record::KmvVideoIndex index;
    const File file(Kmv());
    const auto size = static_cast<long long>(std::filesystem::file_size(Kmv()));
    if (pread(file.Descriptor(), &index, sizeof index, record::KmvUsualIndexOffset(size)) != sizeof index)
      std::exit(1);
    std::copy(std::begin(index.slots), std::end(index.slots), m_slots.begin());
    m_lastSlot = static_cast<int>(index.lastSlot);
  }

  std::string Kmv() const { return m_place.File("long.kmv"); }
  std::string Cut() const { return m_place.File("cut.kmv"); }
  std::string Mkv() const { return m_place.File("long.mkv"); }
  std::string Mp4() const { return m_place.File("long.mov"); }

  void BeginRound() { m_random = m_random * 1664525 + 1013904223; }

  template <typename SeekAndRead>
  void EachSecond(int seeks, const SeekAndRead& seekAndRead) const {
    std::uint32_t random = m_random;
    for (int i = 0; i < seeks; ++i) {
      random = random * 1664525 + 1013904223;
      seekAndRead(static_cast<int>((random >> 8) % static_cast<unsigned>(m_lastSlot)));
    }
  }

  Cost KmvSeeks(int seeks, bool cold) const {
    CKmvFile file;
    if (file.Open(Kmv().c_str()) < 1) std::exit(1);
    if (cold) Place::DropCaches();
    const Stopwatch watch;
    EachSecond(seeks, [&](int second) {
      file.SeekTimeOffset(static_cast<unsigned long>(second));
      OneFrame(file);
    });
    return watch.Elapsed();
  }

  Cost BareSeeks(int seeks, bool cold) const {
    const File file(Kmv());
    if (cold) Place::DropCaches();
    const Stopwatch watch;
    EachSecond(seeks, [&](int second) {
      g_sum += ReadPacketAt(file.Descriptor(), m_slots[static_cast<size_t>(second)]);
    });
    return watch.Elapsed();
  }

  Cost AvSeeks(const std::string& path, int seeks, bool cold) const {
    AvReader reader(path);
    if (cold) Place::DropCaches();
    const Stopwatch watch;
    EachSecond(seeks, [&](int second) {
      reader.Seek(second);
      const AVPacket* packet = reader.ReadVideo();
      if (packet != nullptr) g_sum += packet->data[packet->size - 1];
    });
    return watch.Elapsed();
  }

 private:
  const Place& m_place;
  int m_seconds;
  int m_lastSlot = 0;
  std::vector<std::uint32_t> m_slots;
  std::uint32_t m_random = 4711;
};

template <typename Work>
Cost Repeated(int times, bool cold, const Work& work) {
  if (cold) Place::DropCaches();
  const Stopwatch watch;
  for (int i = 0; i < times; ++i) work();
  return watch.Elapsed();
}

void OpenRecord(const std::string& path) {
  const std::unique_ptr<CVideoFile> file = CreateVideoFile(path.c_str());
  if (file->Open(path.c_str()) < 1) std::exit(1);
  OneFrame(*file);
}

void OpenAv(const std::string& path) {
  AvReader reader(path);
  if (reader.ReadVideo() == nullptr) std::exit(1);
}

void OpenAndSeekCut(const std::string& path, int second) {
  CKmvFile file;
  if (file.Open(path.c_str()) < 1) std::exit(1);
  file.SeekTimeOffset(static_cast<unsigned long>(second));
  OneFrame(file);
}

void BareScan(const std::string& path, bool random) {
  const File file(path);
  if (random) posix_fadvise(file.Descriptor(), 0, 0, POSIX_FADV_RANDOM);
  g_sum += static_cast<unsigned long>(ScanPacketHeads(file.Descriptor()));
}

void Seeks(LongFiles& files, int rounds, const std::string& where, bool cold) {
  const int seeks = cold ? kColdSeeks : kWarmSeeks;
  std::vector<Contender> contenders = {
      {"KMV",
       [&] {
         files.BeginRound();
         return files.KmvSeeks(seeks, cold);
       }},
      {"two positioned reads", [&] { return files.BareSeeks(seeks, cold); }},
      {"libavformat matroska", [&] { return files.AvSeeks(files.Mkv(), seeks, cold); }},
      {"libavformat mp4", [&] { return files.AvSeeks(files.Mp4(), seeks, cold); }}};
  TakeTurns(rounds, contenders);
  const std::string what = "seek + frame, " + where;
  const Measure measure = cold ? Measure::kWall : Measure::kCpu;
  PrintRatio(what, contenders[0], contenders[1], seeks, {cold ? 0.5 : 1.2, measure});
  PrintRatio(what, contenders[0], contenders[2], seeks, {cold ? 0 : 0.6, measure});
  PrintRatio(what, contenders[0], contenders[3], seeks, {cold ? 0 : 0.6, measure});
}

Contender Opening(const char* name, const std::string& path, bool cold, void (*open)(const std::string&)) {
  return {name, [=] { return Repeated(cold ? 1 : kWarmOpens, cold, [&] { open(path); }); }};
}

// Of the first contender beside the others.
void PrintOpenings(std::vector<Contender> contenders, int rounds, const std::string& where, bool cold,
                   double goal) {
  TakeTurns(rounds, contenders);
  const Goal judged = {cold ? 0 : goal, cold ? Measure::kWall : Measure::kCpu};
  for (size_t i = 1; i < contenders.size(); ++i)
    PrintRatio("open " + contenders[0].name + ", " + where, contenders[0], contenders[i], cold ? 1 : kWarmOpens,
               judged);
}

void Opens(const LongFiles& files, int rounds, const std::string& where, bool cold) {
  PrintOpenings(
      {Opening("KMV", files.Kmv(), cold, OpenRecord), Opening("libavformat matroska", files.Mkv(), cold, OpenAv),
       Opening("libavformat mp4", files.Mp4(), cold, OpenAv)},
      rounds, where, cold, 0.1);
}

void LostTails(const LongFiles& files, int rounds, const std::string& where, bool cold, int second) {
  std::vector<Contender> contenders = {
      {"KMV", [&] { return Repeated(1, cold, [&] { OpenAndSeekCut(files.Cut(), second); }); }},
      {"bare scan of packet heads", [&] { return Repeated(1, cold, [&] { BareScan(files.Cut(), false); }); }},
      {"the same, no read-ahead", [&] { return Repeated(1, cold, [&] { BareScan(files.Cut(), true); }); }}};
  TakeTurns(rounds, contenders);
  const std::string what = "no tail, " + where;
  const Goal goal = {1.2, cold ? Measure::kWall : Measure::kCpu};
  PrintRatio(what, contenders[0], contenders[1], 1, goal);
  PrintRatio(what, contenders[0], contenders[2], 1, {});
  PrintFigure("no tail, " + where + ": open + seek, wall", MedianCost(contenders[0]).wall * 1e3, "ms");
}

void SeekAt(const Place& place, const Options& options, bool isDisk) {
  place.BecomeDevice();
  LongFiles files(place, options);
  const int second = options.longSeconds * 2 / 3;
  BareScan(files.Cut(), false);
  const std::string warm = place.Kind() + (isDisk ? " warm" : "");
  Seeks(files, options.rounds, warm, false);
  Opens(files, options.rounds, warm, false);
  LostTails(files, options.rounds, warm, false, second);
  if (!isDisk) return;
  if (!Place::DropCaches()) {
    PrintNote("cold passes skipped: only root may drop the page cache");
    return;
  }
  Seeks(files, options.rounds, "disk cold", true);
  Opens(files, options.rounds, "disk cold", true);
  LostTails(files, options.rounds, "disk cold", true, second);
}

// The other containers' files, one at a time: each is as large as those above.
void OpenOthersAt(const std::string& kind, const std::string& parent, const Options& options, bool isDisk) {
  constexpr struct {
    const char* name;
    Container container;
    bool isFinished;
    double goal;
  } kFiles[] = {{"AVI", Container::kAvi, true, 1.0},
                {"MP4", Container::kMp4, true, 0},
                {"growing MP4", Container::kMp4, false, 0}};
  const Clip clip(options.longSeconds);
  for (const auto& file : kFiles) {
    const Place place(kind, parent);
    place.BecomeDevice();
    const std::string path = place.File(std::string("long") + ExtensionOf(file.container));
    MakeRecordFile(file.container, path, clip, file.isFinished);
    sync();
    for (const bool cold : {false, true}) {
      if (cold && (!isDisk || !Place::DropCaches())) continue;
      PrintOpenings(
          {Opening(file.name, path, cold, OpenRecord), Opening("libavformat, the same file", path, cold, OpenAv)},
          options.rounds,
          kind + (!isDisk ? ""
                  : cold  ? " cold"
                          : " warm"),
          cold, file.goal);
    }
  }
}

}  // namespace

void SeekGroup(const Options& options) {
  PrintHeadline("Seeking and opening, files of " + std::to_string(options.longSeconds / 60) + " minutes");
  SeekAt(Place("tmpfs", options.memory), options, false);
  SeekAt(Place("disk", options.disk), options, true);
  OpenOthersAt("tmpfs", options.memory, options, false);
  OpenOthersAt("disk", options.disk, options, true);
}

}  // namespace bench
