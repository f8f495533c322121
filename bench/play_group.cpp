// Playback in real time: how late frames come, what sessions cost, how soon the first frame is there.
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <iterator>
#include <memory>
#include <mutex>

#include "base/clock.h"
#include "bench/day_tree.h"
#include "bench/place.h"
#include "bench/recording.h"
#include "bench/table.h"
#include "record/catalogue.h"
#include "record/playback.h"
#include "record/storage.h"
#include "record/video_file.h"

namespace bench {
namespace {

constexpr int kDay = 1;
constexpr int kFilesADay = 1440;
constexpr int kFileSeconds = kSecondsPerDay / kFilesADay;
constexpr int kSessions = 10;
constexpr int kOpenings = 40;

struct Push {
  double wallMs;
  double ptsMs;
};

double NowMs() {
  return MonotonicSeconds() * 1e3;
}

// What the callbacks of one session at a time leave, which have nothing but a number.
class Pushes {
 public:
  void Clear() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_pushes.clear();
  }
  void Add(double ptsMs) {
    const double now = NowMs();
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_pushes.push_back({now, ptsMs});
    m_changed.notify_all();
  }
  Push AwaitFirst() {
    std::unique_lock<std::mutex> lock(m_mutex);
    if (!m_changed.wait_for(lock, std::chrono::seconds(10), [this] { return !m_pushes.empty(); })) std::exit(1);
    return m_pushes.front();
  }
  std::vector<Push> All() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_pushes;
  }

 private:
  std::mutex m_mutex;
  std::condition_variable m_changed;
  std::vector<Push> m_pushes;
};
Pushes g_pushes;
std::atomic<long> g_frames{0};

PlaybackPushResult Note(unsigned, const char*, unsigned, unsigned long long ptsMs, int) {
  g_pushes.Add(static_cast<double>(ptsMs));
  return BUF_OK;
}

PlaybackPushResult CountVideo(unsigned, const char*, unsigned, unsigned long long, int) {
  ++g_frames;
  return BUF_OK;
}

PlaybackPushResult TakeAudio(unsigned, const char*, unsigned, unsigned long long) {
  return BUF_OK;
}

std::unique_ptr<CPlaybackSession> MakeSession(int id, long long at, PlaybackVideoCallback video) {
  return std::make_unique<CPlaybackSession>(static_cast<unsigned>(id), 0, static_cast<long>(at), nullptr, video,
                                            TakeAudio, nullptr);
}

// Over the change of files in its middle.
void Lateness(const std::string& where, int seconds) {
  g_pushes.Clear();
  const auto session = MakeSession(1, MidnightOf(kDay) + 10 * kFileSeconds - seconds / 2, Note);
  session->Start();
  g_pushes.AwaitFirst();
  record::SleepMs(seconds * 1000);
  session->Stop();
  const std::vector<Push> pushes = g_pushes.All();
  std::vector<double> late;
  for (const Push& push : pushes)
    late.push_back(push.wallMs - pushes.front().wallMs - (push.ptsMs - pushes.front().ptsMs));
  const std::string what = "speed 1, " + std::to_string(seconds) + " s, " + where + ": ";
  PrintFigure(what + "frames pushed", static_cast<double>(late.size()), "frames");
  PrintFigure(what + "lateness, p50", Percentile(late, 50), "ms");
  PrintFigure(what + "lateness, p99", Percentile(late, 99), "ms", 5);
  PrintFigure(what + "lateness, worst", Percentile(late, 100), "ms");
  PrintFigure(what + "earliest, ahead of its time by", -Percentile(late, 0), "ms", 10);
}

void TenSessions(const std::string& where, int seconds) {
  std::vector<std::unique_ptr<CPlaybackSession>> sessions;
  for (int i = 0; i < kSessions; ++i) {
    sessions.push_back(MakeSession(i, MidnightOf(kDay) + i * 3600, CountVideo));
    sessions.back()->Start();
  }
  record::SleepMs(1000);
  const long before = g_frames;
  const Stopwatch watch(Whose::kProcess);
  record::SleepMs(seconds * 1000);
  const Cost cost = watch.Elapsed();
  const auto frames = static_cast<double>(g_frames - before);
  for (const auto& session : sessions) session->Stop();
  const std::string what = "ten sessions at speed 1, " + where + ": ";
  PrintFigure(what + "CPU", cost.cpu / cost.wall * 100, "% of a core");
  PrintFigure(what + "frames a second and session", frames / cost.wall / kSessions, "frames");
}

long long SomeSecond(int round) {
  return MidnightOf(kDay) + round * 40009LL % kSecondsPerDay;
}

// By hand what a session does until its first frame: the catalogue, a file opened and sought.
Cost BareOpening(int round) {
  const Stopwatch watch;
  DayRecordMap map;
  GetDayRecordInfo_by_streamIdx(kYear, kMonth, kDay, map, 1);
  const auto second = static_cast<unsigned>(SomeSecond(round) - MidnightOf(kDay));
  const RecordFileInfo& info = *std::prev(map.upper_bound(second))->second;
  CKmvFile file;
  if (file.Open(RecordFilePath(info).c_str()) < 1) std::exit(1);
  file.SeekTimeOffset(second - info.nStartSecond);
  unsigned char* data;
  long owned, video, key;
  unsigned long ms;
  if (file.GetMediaFrame(&data, owned, video, key, ms) < 1) std::exit(1);
  if (owned != 0) delete[] data;
  Free_MapRecordFileInfo(map);
  return watch.Elapsed();
}

void Openings(const std::string& where) {
  std::vector<double> wallMs;
  std::vector<double> cpuMs;
  std::vector<double> bareMs;
  for (int round = 0; round < kOpenings; ++round) {
    g_pushes.Clear();
    const Stopwatch watch(Whose::kProcess);
    const double begin = NowMs();
    const auto session = MakeSession(round, SomeSecond(round), Note);
    session->Start();
    const Push first = g_pushes.AwaitFirst();
    cpuMs.push_back(watch.Elapsed().cpu * 1e3);
    wallMs.push_back(first.wallMs - begin);
    session->Stop();
    bareMs.push_back(BareOpening(round).wall * 1e3);
  }
  const std::string what = "open and seek in a day of 1440 files, " + where + ": ";
  PrintFigure(what + "p50", Median(wallMs), "ms until the first frame");
  PrintFigure(what + "p99", Percentile(wallMs, 99), "ms");
  PrintFigure(what + "CPU", Median(cpuMs), "ms");
  PrintFigure("catalogue, reader and frame by hand, " + where + ": p50", Median(bareMs), "ms");
}

void PlayAt(const Place& place, const Options& options) {
  place.BecomeDevice();
  const std::string content = place.File("minute.kmv");
  MakeRecordFile(Container::kKmv, content, Clip(kFileSeconds), true);
  MakeDay({"/mnt/mmc0", kDay, kFilesADay, 1, 0, content.c_str()});
  Openings(place.Kind());
  Lateness(place.Kind(), options.realtimeSeconds);
  TenSessions(place.Kind(), options.realtimeSeconds);
}

}  // namespace

void PlayGroup(const Options& options) {
  PrintHeadline("Playback in real time");
  PlayAt(Place("tmpfs", options.memory), options);
  PlayAt(Place("disk", options.disk), options);
}

}  // namespace bench
