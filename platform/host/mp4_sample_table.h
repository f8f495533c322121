// What the index of a finished MP4 file says of one track, gathered while the file grows.
//
// Memory: 4 bytes a sample for its size (none while all are alike), 8 for each place where the other track's
// samples stand in between, 8 for each change of the duration, 4 a key frame.
#ifndef PLATFORM_HOST_MP4_SAMPLE_TABLE_H
#define PLATFORM_HOST_MP4_SAMPLE_TABLE_H

#include <cstddef>
#include <cstdint>
#include <deque>

#include "platform/host/mp4_boxes.h"

namespace record {

struct TableSample {
  std::int64_t time;  // in units of the track's time scale; goes up from sample to sample
  std::uint32_t size;
  bool isKey;
  std::uint64_t offset;  // in the file
};

class SampleTable {
 public:
  // False: the hole in front of the sample is longer than an index can tell; then it is not in the table.
  bool Add(const TableSample& sample);
  void Clear();
  size_t Memory() const;  // bytes, about
  bool IsEmpty() const { return m_count == 0; }
  std::int64_t Start() const { return m_start; }
  std::int64_t LastTime() const { return m_lastTime; }
  // stts to stco; `hasKeys`: with a list of the key frames (without one every sample is one).
  void Write(BoxWriter& out, std::uint32_t lastDuration, bool hasKeys) const;

 private:
  struct Run {
    std::uint32_t value;
    std::uint32_t count;
  };
  // Numbers that mostly repeat; a deque, because a vector that grows holds its content twice.
  using Runs = std::deque<Run>;
  static void Extend(Runs& runs, std::uint32_t value);

  void AddSize(std::uint32_t size);
  void AddPlace(const TableSample& sample);
  void WriteSizes(BoxWriter& out) const;
  void WriteChunks(BoxWriter& out) const;

  std::uint32_t m_count = 0;
  std::int64_t m_start = 0;
  std::int64_t m_lastTime = 0;
  Runs m_durations;  // of all samples but the last
  std::uint32_t m_commonSize = 0;
  std::deque<std::uint32_t> m_sizes;  // empty while all have the common size
  std::deque<std::uint32_t> m_keys;   // numbers from 1
  std::deque<std::uint64_t> m_chunks;
  Runs m_samplesPerChunk;             // of all chunks but the last
  std::uint32_t m_samplesInLast = 0;  // in the last chunk
  std::uint64_t m_end = 0;            // offset behind the last sample
};

}  // namespace record

#endif
