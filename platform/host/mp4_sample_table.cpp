#include "platform/host/mp4_sample_table.h"

namespace record {

void SampleTable::Extend(Runs& runs, std::uint32_t value) {
  if (runs.empty() || runs.back().value != value) runs.push_back({value, 0});
  ++runs.back().count;
}

bool SampleTable::Add(const TableSample& sample) {
  if (IsEmpty()) m_start = m_lastTime = sample.time;
  const std::int64_t duration = sample.time - m_lastTime;
  if (duration > UINT32_MAX) return false;
  if (!IsEmpty()) Extend(m_durations, static_cast<std::uint32_t>(duration));
  m_lastTime = sample.time;
  AddSize(sample.size);
  AddPlace(sample);
  ++m_count;
  if (sample.isKey) m_keys.push_back(m_count);
  return true;
}

void SampleTable::Clear() {
  m_count = 0;
  m_durations.clear();
  m_sizes.clear();
  m_keys.clear();
  m_chunks.clear();
  m_samplesPerChunk.clear();
}

size_t SampleTable::Memory() const {
  return (m_durations.size() + m_samplesPerChunk.size()) * sizeof(Run) + m_chunks.size() * sizeof(m_chunks[0]) +
         (m_sizes.size() + m_keys.size()) * sizeof(m_sizes[0]);
}

void SampleTable::AddSize(std::uint32_t size) {
  if (IsEmpty()) m_commonSize = size;
  if (m_sizes.empty() && size == m_commonSize) return;
  if (m_sizes.empty()) m_sizes.assign(m_count, m_commonSize);
  m_sizes.push_back(size);
}

// A chunk is a stretch of samples that touch each other.
void SampleTable::AddPlace(const TableSample& sample) {
  if (m_chunks.empty() || sample.offset != m_end) {
    if (!m_chunks.empty()) Extend(m_samplesPerChunk, m_samplesInLast);
    m_chunks.push_back(sample.offset);
    m_samplesInLast = 0;
  }
  ++m_samplesInLast;
  m_end = sample.offset + sample.size;
}

void SampleTable::Write(BoxWriter& out, std::uint32_t lastDuration, bool hasKeys) const {
  Runs durations = m_durations;
  if (!IsEmpty()) Extend(durations, lastDuration);
  out.FullBox("stts", 0, 0, [&] {
    out.U32(static_cast<std::uint32_t>(durations.size()));
    for (const Run& run : durations) out.U32(run.count), out.U32(run.value);
  });
  if (hasKeys) {
    out.FullBox("stss", 0, 0, [&] {
      out.U32(static_cast<std::uint32_t>(m_keys.size()));
      for (const std::uint32_t number : m_keys) out.U32(number);
    });
  }
  WriteChunks(out);
  WriteSizes(out);
}

// Listed one by one even when all are alike: with one size for all, GStreamer takes a frame of G.711 for one byte.
void SampleTable::WriteSizes(BoxWriter& out) const {
  out.FullBox("stsz", 0, 0, [&] {
    out.U32(0);
    out.U32(m_count);
    if (m_sizes.empty()) {
      for (std::uint32_t i = 0; i < m_count; ++i) out.U32(m_commonSize);
    }
    for (const std::uint32_t size : m_sizes) out.U32(size);
  });
}

void SampleTable::WriteChunks(BoxWriter& out) const {
  Runs perChunk = m_samplesPerChunk;
  if (!IsEmpty()) Extend(perChunk, m_samplesInLast);
  out.FullBox("stsc", 0, 0, [&] {
    out.U32(static_cast<std::uint32_t>(perChunk.size()));
    std::uint32_t firstChunk = 1;
    for (const Run& run : perChunk) {
      out.U32(firstChunk), out.U32(run.value), out.U32(1);  // the only sample description
      firstChunk += run.count;
    }
  });
  const bool is64 = !m_chunks.empty() && m_chunks.back() > UINT32_MAX;
  out.FullBox(is64 ? "co64" : "stco", 0, 0, [&] {
    out.U32(static_cast<std::uint32_t>(m_chunks.size()));
    for (const std::uint64_t offset : m_chunks) out.Wide(is64, offset);
  });
}

}  // namespace record
