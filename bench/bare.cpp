#include "bench/bare.h"

#include <fcntl.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "format/avi/avi_format.h"
#include "format/kmv/kmv_format.h"

namespace bench {

using record::KmvPacketHead;

BareWriter::BareWriter(const std::string& path) : m_file(open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644)) {
  if (m_file < 0) std::exit(1);
}

BareWriter::~BareWriter() {
  fsync(m_file);
  close(m_file);
}

void BareWriter::Write(const Frame& frame) {
  KmvPacketHead head = {};
  head.length = static_cast<std::uint32_t>(frame.length);
  head.timestamp = frame.ms;
  const struct iovec parts[] = {{&head, sizeof head}, {frame.data, static_cast<size_t>(frame.length)}};
  if (writev(m_file, parts, 2) < 0) std::exit(1);
}

namespace {

// The payloads behind heads that follow one another; `payloadOf` takes a head apart, false ends the walk.
template <typename Head, typename PayloadOf>
std::vector<Payload> WalkHeads(const std::string& path, long long offset, const PayloadOf& payloadOf) {
  std::vector<Payload> payloads;
  const int file = open(path.c_str(), O_RDONLY);
  Head head;
  size_t length = 0;
  while (pread(file, &head, sizeof head, offset) == static_cast<ssize_t>(sizeof head) && payloadOf(head, length)) {
    const auto begin = offset + static_cast<long long>(sizeof head);
    payloads.push_back({begin, length});
    offset = begin + static_cast<long long>(length);
  }
  close(file);
  return payloads;
}

}  // namespace

std::vector<Payload> PayloadsOf(Container container, const std::string& path) {
  if (container == Container::kAvi) {
    return WalkHeads<record::AviChunkHead>(path, record::AviHeaderSize(true),
                                           [](const auto& head, size_t& length) {
                                             length = head.length;
                                             return record::AviIsFrame(head.id);
                                           });
  }
  return WalkHeads<KmvPacketHead>(path, record::kKmvHeadSize, [](const auto& head, size_t& length) {
    length = head.length;
    return head.magic == record::KMV_PACKET_MAGIC;
  });
}

unsigned long ReadInBlocks(const std::string& path, const std::vector<Payload>& payloads) {
  constexpr size_t kBlock = 256 << 10;
  const int file = open(path.c_str(), O_RDONLY);
  const std::unique_ptr<unsigned char[]> block(new unsigned char[kBlock]);
  long long begin = 0;
  long long end = 0;
  unsigned long sum = 0;
  for (const Payload& payload : payloads) {
    const size_t length = payload.length;
    const std::unique_ptr<unsigned char[]> frame(new unsigned char[length]);
    long long from = payload.offset;
    for (size_t done = 0; done < length;) {
      if (from >= end) {
        const ssize_t got = read(file, block.get(), kBlock);
        if (got <= 0) std::exit(1);
        begin = end;
        end += got;
        continue;  // the payload may begin in the block behind this one
      }
      const size_t piece = std::min(length - done, static_cast<size_t>(end - from));
      std::memcpy(frame.get() + done, block.get() + (from - begin), piece);
      done += piece;
      from += static_cast<long long>(piece);
    }
    sum += frame[0] + frame[length - 1];
  }
  close(file);
  return sum;
}

unsigned long ReadPacketAt(int file, long long offset) {
  KmvPacketHead head;
  if (pread(file, &head, sizeof head, offset) != static_cast<ssize_t>(sizeof head)) std::exit(1);
  const std::unique_ptr<unsigned char[]> data(new unsigned char[head.length]);
  if (pread(file, data.get(), head.length, record::KmvPayloadOffset(offset)) <= 0) std::exit(1);
  return data[0] + data[head.length - 1];
}

long ScanPacketHeads(int file) {
  KmvPacketHead head;
  long long offset = record::kKmvHeadSize;
  long packets = 0;
  while (pread(file, &head, sizeof head, offset) == static_cast<ssize_t>(sizeof head) &&
         head.magic == record::KMV_PACKET_MAGIC) {
    offset = record::KmvPacketEnd(offset, head.length);
    ++packets;
  }
  return packets;
}

}  // namespace bench
