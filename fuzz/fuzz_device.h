// A device of its own for a fuzz target: a directory in memory as its root, the fake platform, no log.
#ifndef FUZZ_FUZZ_DEVICE_H
#define FUZZ_FUZZ_DEVICE_H

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <thread>

#include "record/storage.h"
#include "storage/layout.h"
#include "storage/record_info.h"
#include "tests/support/device_test.h"
#include "tests/support/thread_count.h"

namespace fuzz {

inline void Require(bool holds) {
  if (!holds) std::abort();
}

class Device {
 public:
  static constexpr char kRoot[] = "/mnt/mmc0/schedule";

  template <typename Prepare>
  explicit Device(const Prepare& prepare) : Device() {
    prepare(*this);
  }
  Device() {
    std::string directory =
        std::string(access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp") + "/record-fuzz-XXXXXX";
    Require(mkdtemp(directory.data()) != nullptr);
    m_root = directory;
    SetDeviceRoot(m_root.c_str());
    fake::Platform::Get().Reset();
    fake::Platform::Get().keepLog = false;
    fake::Clock::Get().Reset(2024, 1, 31, 8, 15, 0);
    fake::InstallClock();
  }
  ~Device() { std::filesystem::remove_all(m_root); }
  std::string Path(const std::string& devicePath) const { return m_root + devicePath; }

  // A finished record of the schedule with a side file that says when it was made; the newest one listed.
  void AddRecord(const std::string& name, const std::string& bytes, std::uint32_t startSeconds,
                 int seconds) const {
    PutRecord(name, bytes, startSeconds, seconds);
    auto& records = fake::Platform::Get().records;
    records.insert(records.begin(), {kRoot, name});
  }
  void PutRecord(const std::string& name, const std::string& bytes, std::uint32_t startSeconds,
                 int seconds) const {
    RecordInfoStruct info = {};
    info.startSeconds = startSeconds;
    info.endSeconds = startSeconds + static_cast<std::uint32_t>(seconds);
    fake::WriteFile(RecordPath(name), bytes);
    record::WriteRecordInfo(record::InfoPath(RecordPath(name)), info);
  }
  std::string RecordPath(const std::string& name) const { return Path(std::string(kRoot) + "/" + name); }

  // Until all threads have gone that were started since: what one that detached itself still holds while it ends
  // would be taken for a leak.
  void AwaitThreads() const {
    while (fake::ThreadCount() > m_threads) std::this_thread::yield();
  }

 private:
  std::string m_root;
  const std::ptrdiff_t m_threads = fake::ThreadCount();
};

}  // namespace fuzz

#endif
