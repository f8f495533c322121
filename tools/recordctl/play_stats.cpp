#include "tools/recordctl/play_stats.h"

#include <algorithm>

#include "export/gap_list.h"

namespace recordctl {
namespace {

// A hole so long is no loss but time without a recording.
constexpr long long kGapMs = record::GapList::kLongestStutterMs;
constexpr long long kUnrelatedMs = 86400000;  // stamps so far apart are of two clocks
constexpr int kKeysOnlySpeed = 4;

}  // namespace

long long PlayStats::StepTo(const ArrivedPicture& picture) const {
  if (picture.hasStreamStamp && m_last.hasStreamStamp) {
    const auto step = static_cast<std::int32_t>(picture.stamp - m_last.stamp);
    if (step > -kUnrelatedMs && step < kUnrelatedMs) return step;
  }
  return static_cast<long long>(picture.ptsMs) - static_cast<long long>(m_last.ptsMs);
}

// From file to file, where nothing but their names tells how they follow: those have whole seconds, and files
// begin with pictures from before that. What is no gap then means neither a loss nor a repetition.
bool PlayStats::IsNameStep(const ArrivedPicture& picture, long long step) const {
  const bool hasStamps = picture.hasStreamStamp && m_last.hasStreamStamp;
  return picture.beginsFile && !hasStamps && step > -kGapMs && step < kGapMs;
}

unsigned PlayStats::Take(const ArrivedPicture& picture, int speed, unsigned frameMs) {
  ++m_pictures;
  m_keys += picture.isKey;
  m_bytes += picture.bytes;
  const bool follows = m_follows;
  const long long step = follows ? StepTo(picture) : 0;
  const bool isNameStep = follows && IsNameStep(picture, step);
  if (follows) Measure(picture, step, speed);
  if (!follows) m_dueAt = picture.atMs;
  m_follows = true;
  m_last = picture;
  if (!follows || isNameStep) return 0;
  if (step <= 0) ++m_repeated;
  if (step >= kGapMs && (speed < kKeysOnlySpeed || step >= 30 * kGapMs)) {
    ++m_gaps;
    return static_cast<unsigned>(step);
  }
  if (speed < kKeysOnlySpeed && frameMs > 0 && 2 * step > 3LL * frameMs)
    m_missing += static_cast<unsigned long long>((step + frameMs / 2) / frameMs - 1);
  return 0;
}

// Against the times that the recording has, from the last gap on.
void PlayStats::Measure(const ArrivedPicture& picture, long long step, int speed) {
  const long long pts = static_cast<long long>(picture.ptsMs) - static_cast<long long>(m_last.ptsMs);
  const bool isEven = step > 0 && step < kGapMs / 2 && pts > 0 && pts < kGapMs / 2;
  if (!isEven) {
    m_dueAt = picture.atMs;
    return;
  }
  m_dueAt += speed < 0 ? pts * -speed : pts / std::max(speed, 1);
  m_lateness.push_back(picture.atMs - m_dueAt);
}

void PlayStats::TakeSound(unsigned bytes) {
  ++m_sounds;
  m_bytes += bytes;
}

long long PlayStats::Percentile(int percent) const {
  if (m_lateness.empty()) return 0;
  std::vector<long long> sorted = m_lateness;
  std::sort(sorted.begin(), sorted.end());
  return sorted[(sorted.size() - 1) * static_cast<size_t>(percent) / 100];
}

Json PlayStats::Summary() const {
  return {{"video_frames", m_pictures},
          {"key_frames", m_keys},
          {"audio_frames", m_sounds},
          {"bytes", m_bytes},
          {"repeated", m_repeated},
          {"missing", m_missing},
          {"gaps", m_gaps},
          {"late_p0_ms", Percentile(0)},
          {"late_p50_ms", Percentile(50)},
          {"late_p99_ms", Percentile(99)}};
}

}  // namespace recordctl
