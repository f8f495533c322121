// A record file in memory, for the fuzz targets of readers.
#ifndef FUZZ_MEMORY_FILE_H
#define FUZZ_MEMORY_FILE_H

#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <string>

#include "fuzz/fuzz_device.h"

namespace fuzz {

class MemoryFile {
 public:
  MemoryFile(const std::uint8_t* data, std::size_t size) : m_descriptor(memfd_create("record", MFD_CLOEXEC)) {
    if (m_descriptor < 0) std::abort();
    Append(data, size);
    m_path = "/proc/self/fd/" + std::to_string(m_descriptor);
  }
  ~MemoryFile() { close(m_descriptor); }
  void Append(const std::uint8_t* data, std::size_t size) {
    if (write(m_descriptor, data, size) != static_cast<ssize_t>(size)) std::abort();
  }
  const char* Path() const { return m_path.c_str(); }

 private:
  int m_descriptor;
  std::string m_path;
};

}  // namespace fuzz

#endif
