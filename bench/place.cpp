#include "bench/place.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include "record/storage.h"

namespace bench {

Place::Place(const std::string& kind, const std::string& parent) : m_kind(kind) {
  std::string name = parent + "/record_bench.XXXXXX";
  if (mkdtemp(name.data()) == nullptr) {
    std::fprintf(stderr, "record_bench: cannot make a directory in %s\n", parent.c_str());
    std::exit(1);
  }
  m_directory = name;
}

Place::~Place() {
  std::error_code ignored;
  std::filesystem::remove_all(m_directory, ignored);
}

void Place::BecomeDevice() const {
  SetDeviceRoot(m_directory.c_str());
  for (const char* path : {"/mnt/mmc0", "/tmp", "/opt/zq"}) std::filesystem::create_directories(DevicePath(path));
}

bool Place::DropCaches() {
  sync();
  FILE* file = std::fopen("/proc/sys/vm/drop_caches", "w");
  if (file == nullptr) return false;
  const bool written = std::fputs("1", file) >= 0;
  return (std::fclose(file) == 0) && written;
}

}  // namespace bench
