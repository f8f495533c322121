// What the background syncs cost. A measurement, run when asked for.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <thread>

#include "record/types.h"
#include "tests/trust/loop_disk.h"
#include "tests/trust/recorder.h"
#include "tests/trust/run_size.h"

namespace trust {
namespace {

// Milliseconds of processor time of the process's threads, by name.
std::map<std::string, double> ThreadTimes(pid_t process) {
  std::map<std::string, double> times;
  for (const auto& thread : std::filesystem::directory_iterator("/proc/" + std::to_string(process) + "/task")) {
    std::string name;
    double nanoseconds = 0;
    std::getline(std::ifstream(thread.path() / "comm"), name);
    std::ifstream(thread.path() / "schedstat") >> nanoseconds;
    times[name] += nanoseconds / 1e6;
  }
  return times;
}

struct Measured {
  explicit Measured(int interval) : intervalMs(interval), disk("/var/tmp"), journal(Journal::Create()) {}
  ~Measured() {
    if (recorder != nullptr) recorder->Kill();
    Journal::Destroy(journal);
  }

  void Start(int channels) {
    RecorderPlan plan;
    plan.root = disk.MountPoint();
    for (int n = 0; n < channels; ++n) plan.channels.push_back({RECORD_KIND_SCHEDULE + n / 2, n % 2, 1000});
    plan.syncIntervalMs = intervalMs;
    MakeDevice(plan.root);
    sync();
    before = disk.GetLoad();
    recorder = std::make_unique<Recorder>(plan, *journal);
  }
  void Finish(double seconds, int channels) {
    std::map<std::string, double> times = ThreadTimes(recorder->Process());
    recorder->Kill();
    sync();
    const LoopDisk::Load after = disk.GetLoad();
    std::printf(
        "interval %4d ms, %d channels: %.0f KB/s written in %.1f writes/s, %.2f flushes/s; CPU: record "
        "threads %.2f ms/s, sync thread %.2f ms/s\n",
        intervalMs, channels, static_cast<double>(after.bytesWritten - before.bytesWritten) / 1e3 / seconds,
        static_cast<double>(after.writes - before.writes) / seconds,
        static_cast<double>(after.flushes - before.flushes) / seconds, times["RecordThread"] / seconds,
        times["RecordSync"] / seconds);
  }

  int intervalMs;
  LoopDisk disk;
  Journal* journal;
  LoopDisk::Load before = {};
  std::unique_ptr<Recorder> recorder;
};

TEST(SyncCost, DISABLED_OfIntervals) {
  const long seconds = FromEnvironment("RECORD_SECONDS", 60);
  const int channels = static_cast<int>(FromEnvironment("RECORD_CHANNELS", 1));
  std::vector<std::unique_ptr<Measured>> all;
  for (const int interval : {0, 500, 1000, 2000, 5000}) {
    all.push_back(std::make_unique<Measured>(interval));
    if (!all.back()->disk.WhyNot().empty()) GTEST_SKIP() << all.back()->disk.WhyNot();
  }
  for (auto& one : all) one->Start(channels);
  std::this_thread::sleep_for(std::chrono::seconds(seconds));
  for (auto& one : all) one->Finish(static_cast<double>(seconds), channels);
}

}  // namespace
}  // namespace trust
