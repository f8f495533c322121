// The holes of an output: the first ones, and how many more there are.
#ifndef EXPORT_GAP_LIST_H
#define EXPORT_GAP_LIST_H

#include <cstddef>
#include <vector>

namespace record {

struct ExportGap {
  long long fromMs;  // of what lies around it, milliseconds since 1970
  long long toMs;
};

class GapList {
 public:
  static constexpr long long kLongestStutterMs = 2000;  // which is no gap
  static constexpr std::size_t kMost = 1000;

  void Add(long long fromMs, long long toMs) {
    if (toMs - fromMs <= kLongestStutterMs) return;
    if (m_gaps.size() < kMost)
      m_gaps.push_back({fromMs, toMs});
    else
      ++m_leftOut;
  }
  void Append(const GapList& later) {
    for (const ExportGap& gap : later.m_gaps) Add(gap.fromMs, gap.toMs);
    m_leftOut += later.m_leftOut;
  }
  const std::vector<ExportGap>& Gaps() const { return m_gaps; }
  std::size_t LeftOut() const { return m_leftOut; }

 private:
  std::vector<ExportGap> m_gaps;
  std::size_t m_leftOut = 0;
};

}  // namespace record

#endif
