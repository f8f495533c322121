// The physical limit: the system calls and copies that a task cannot do without, and nothing else.
#ifndef BENCH_BARE_H
#define BENCH_BARE_H

#include <string>
#include <vector>

#include "bench/recording.h"

namespace bench {

// One writev a frame: a packet head and the payload.
class BareWriter {
 public:
  explicit BareWriter(const std::string& path);
  ~BareWriter();
  BareWriter(const BareWriter&) = delete;
  BareWriter& operator=(const BareWriter&) = delete;
  void Write(const Frame& frame);

 private:
  int m_file;
};

// Where the payload of a frame stands in a file.
struct Payload {
  long long offset;
  size_t length;
};
// Of a KMV or an AVI file with sound.
std::vector<Payload> PayloadsOf(Container container, const std::string& path);

// Reads the file in blocks of 256 KiB and copies every frame into an array of its own. Bytes looked at are
// summed up, so that nothing is left out.
unsigned long ReadInBlocks(const std::string& path, const std::vector<Payload>& payloads);
// Reads one packet by two positioned reads: its head, its payload.
unsigned long ReadPacketAt(int file, long long offset);
// Reads the heads of all packets by positioned reads; how many there are.
long ScanPacketHeads(int file);

}  // namespace bench

#endif
