// A device of its own for a fuzz target: a directory in memory as its root, the fake platform, no log.
#ifndef FUZZ_FUZZ_DEVICE_H
#define FUZZ_FUZZ_DEVICE_H

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <thread>

#include "record/storage.h"
#include "tests/support/fake_platform.h"
#include "tests/support/thread_count.h"

namespace fuzz {

inline void Require(bool holds) {
  if (!holds) std::abort();
}

class Device {
 public:
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
