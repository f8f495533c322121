// The process that one real-time round measures: channels recording from the stream hub, and beside them a bare
// thread that wakes as often and writes the same frames. A process of its own, so that memory counts from zero.
#include <pthread.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "bench/bare.h"
#include "bench/place.h"
#include "bench/recording.h"
#include "record/storage.h"
#include "record/task_manager.h"
#include "record_host/host.h"

namespace bench {
namespace {

constexpr int kWakeMs = 5;
constexpr int kSettleMs = 1500;
constexpr int kMostChannels = 8;

std::atomic<bool> g_stop{false};

// The thread's CPU time in seconds, by any thread.
double ThreadCpu(int thread) {
  double nanoseconds = 0;
  std::ifstream("/proc/self/task/" + std::to_string(thread) + "/schedstat") >> nanoseconds;
  return nanoseconds * 1e-9;
}

int ThisThread() {
  return static_cast<int>(syscall(SYS_gettid));
}

void RestMs(long milliseconds) {
  const struct timespec rest = {milliseconds / 1000, milliseconds % 1000 * 1000000};
  nanosleep(&rest, nullptr);
}

double NowMs(clockid_t clock) {
  struct timespec now = {};
  clock_gettime(clock, &now);
  return static_cast<double>(now.tv_sec) * 1e3 + static_cast<double>(now.tv_nsec) * 1e-6;
}

// A recording whose thread tells who it is.
class Channel : public CKmvTask {
 public:
  Channel(int kind, std::atomic<int>& thread)
      : CKmvTask(RecordingParam(kind), RecordConfig{1, 0, {}}), m_thread(thread) {}
  void SyncAV() override {
    if (!m_told) m_thread = ThisThread();
    m_told = true;
  }

 private:
  std::atomic<int>& m_thread;
  bool m_told = false;
};

// The frames of the clip as they fall due, round and round.
class Pace {
 public:
  explicit Pace(const Clip& clip) : m_clip(clip), m_begin(NowMs(CLOCK_MONOTONIC)) {}

  template <typename Take>
  void TakeDue(const Take& take) {
    const double elapsed = NowMs(CLOCK_MONOTONIC) - m_begin;
    for (; static_cast<double>(m_next / 2 * kFrameMs) <= elapsed; ++m_next)
      take(m_clip.Frames()[m_next % m_clip.Frames().size()]);
  }

 private:
  const Clip& m_clip;
  double m_begin;
  size_t m_next = 0;
};

void Feed(const Clip& clip, std::atomic<int>& thread) {
  thread = ThisThread();
  Pace pace(clip);
  while (!g_stop) {
    pace.TakeDue([](const Frame& frame) {
      HostStreamPublish(frame.video ? STREAM_MAIN : STREAM_AUDIO, frame.data, frame.length, frame.key ? 1 : 0,
                        NowMs(CLOCK_REALTIME), 0);
    });
    RestMs(kFrameMs / 4);
  }
}

void WriteBare(const Clip& clip, const std::string& path, std::atomic<int>& thread) {
  thread = ThisThread();
  BareWriter writer(path);
  Pace pace(clip);
  while (!g_stop) {
    pace.TakeDue([&](const Frame& frame) { writer.Write(frame); });
    RestMs(kWakeMs);
  }
}

bool StartChannel(int number, std::atomic<int>& thread) {
  constexpr int kKinds = 4;
  auto channel = std::make_unique<Channel>(RECORD_KIND_SCHEDULE + number % kKinds, thread);
  if (TaskManagerAddTask(channel.get()) < 0 || channel->Start() != 0) return false;
  channel.release();  // its thread's from now on
  return true;
}

int FindThread(const std::string& name) {
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/task")) {
    std::string found;
    std::ifstream(entry.path() / "comm") >> found;
    if (found == name) return std::stoi(entry.path().filename());
  }
  return 0;
}

int CountThreads() {
  int count = 0;
  for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator("/proc/self/task")) ++count;
  return count;
}

long ResidentKib() {
  long size = 0;
  long resident = 0;
  std::ifstream("/proc/self/statm") >> size >> resident;
  return resident * (sysconf(_SC_PAGESIZE) / 1024);
}

}  // namespace

// Prints: CPU seconds of the record threads, the sync thread, the feeder and the bare thread; threads; KiB.
int RealtimeProbe(const std::string& directory, int channels, int seconds) {
  SetDeviceRoot(directory.c_str());
  for (const char* path : {"/mnt/mmc0", "/tmp", "/opt/zq"}) std::filesystem::create_directories(DevicePath(path));
  const Clip clip(10);
  const std::vector<unsigned char>& sets = ParameterSets();
  HostStreamSetConfig(STREAM_MAIN, sets.data(), static_cast<int>(sets.size()));
  HostStreamSetConfig(STREAM_AUDIO, nullptr, 0);
  TaskManagerInit();

  // 0..7 the channels, then sync, feeder, bare.
  std::atomic<int> threads[kMostChannels + 3] = {};
  std::atomic<int>& sync = threads[kMostChannels];
  std::thread feeder(Feed, std::cref(clip), std::ref(threads[kMostChannels + 1]));
  std::thread bare(WriteBare, std::cref(clip), directory + "/bare", std::ref(threads[kMostChannels + 2]));
  for (int i = 0; i < channels && i < kMostChannels; ++i) {
    if (!StartChannel(i, threads[i])) return 1;
  }
  RestMs(kSettleMs);
  sync = FindThread("RecordSync");
  double before[kMostChannels + 3];
  for (int i = 0; i < kMostChannels + 3; ++i) before[i] = ThreadCpu(threads[i]);
  RestMs(seconds * 1000L);
  double spent[kMostChannels + 3];
  for (int i = 0; i < kMostChannels + 3; ++i) spent[i] = ThreadCpu(threads[i]) - before[i];
  double record = 0;
  for (int i = 0; i < channels; ++i) {
    if (threads[i] == 0) return 1;
    record += spent[i];
  }
  std::printf("%f %f %f %f %d %ld\n", record, spent[kMostChannels], spent[kMostChannels + 1],
              spent[kMostChannels + 2], CountThreads() - 3, ResidentKib());
  TaskManagerRelease();
  g_stop = true;
  feeder.join();
  bare.join();
  RestMs(kSettleMs / 3);  // the record threads end their files
  return 0;
}

}  // namespace bench
