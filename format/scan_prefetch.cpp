#include "format/scan_prefetch.h"

namespace record {
namespace {

constexpr long long kStretch = 2 * 1024 * 1024;
constexpr int kLookEvery = 64;  // stretches

}  // namespace

void ScanPrefetch::BeginStretch(long long offset) {
  const Clock::time_point now = Clock::now();
  if (m_stretches > 0) {
    const std::chrono::duration<double> took = now - m_begun;
    m_cost[m_ahead] = took.count() / static_cast<double>(offset - m_stretchBegin);
  }
  const bool faster = m_cost[true] < m_cost[false];
  if (m_stretches < 2) {
    m_ahead = m_stretches == 1;
  } else {
    m_ahead = m_stretches % kLookEvery == 0 ? !faster : faster;
  }
  ++m_stretches;
  m_begun = now;
  m_stretchBegin = offset;
  m_stretchEnd = offset + kStretch;
  m_source.ReadAhead(m_ahead);
}

}  // namespace record
