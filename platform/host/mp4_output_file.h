// A file that only ever grows by whole pieces, but for the switch that finishes it. No room is reserved for it: in
// reserved room a power cut leaves zeros where a file that merely grows is shorter.
#ifndef PLATFORM_HOST_MP4_OUTPUT_FILE_H
#define PLATFORM_HOST_MP4_OUTPUT_FILE_H

#include <cstdint>
#include <string>

#include "platform/host/annexb.h"

namespace record {

class Mp4OutputFile {
 public:
  Mp4OutputFile() = default;
  ~Mp4OutputFile();
  Mp4OutputFile(const Mp4OutputFile&) = delete;
  Mp4OutputFile& operator=(const Mp4OutputFile&) = delete;

  // Each returns 0 or an errno.
  int Create(const std::string& path);
  // Appends both with one call; a piece that does not fit is taken back.
  int Append(const Bytes& first, const Bytes& second);
  int WriteOver(std::uint64_t offset, const Bytes& bytes);
  int Sync();

  std::uint64_t Size() const { return m_size; }

 private:
  int m_file = -1;
  std::uint64_t m_size = 0;
};

}  // namespace record

#endif
