// What arrived of a playback: counts, holes, repetitions and how late it was.
#ifndef RECORDCTL_PLAY_STATS_H
#define RECORDCTL_PLAY_STATS_H

#include <cstdint>
#include <vector>

#include "tools/recordctl/output.h"

namespace recordctl {

struct ArrivedPicture {
  unsigned long long ptsMs;
  std::uint32_t stamp;  // the stream's own when `hasStreamStamp`: it counts on from file to file
  bool hasStreamStamp;
  bool beginsFile;  // the first one of a file
  bool isKey;
  unsigned bytes;
  long long atMs;  // any clock that runs evenly
};

class PlayStats {
 public:
  // Milliseconds of recording that are not there before the picture; 0 when it follows the one before.
  unsigned Take(const ArrivedPicture& picture, int speed, unsigned frameMs);
  void TakeSound(unsigned bytes);
  void Jump() { m_follows = false; }  // a seek or a change of speed: what comes is not compared with what came

  unsigned long long Pictures() const { return m_pictures; }
  long long LastLateness() const { return m_lateness.empty() ? 0 : m_lateness.back(); }
  Json Summary() const;

 private:
  long long StepTo(const ArrivedPicture& picture) const;
  bool IsNameStep(const ArrivedPicture& picture, long long step) const;
  void Measure(const ArrivedPicture& picture, long long step, int speed);
  long long Percentile(int percent) const;

  bool m_follows = false;
  ArrivedPicture m_last = {};
  unsigned long long m_pictures = 0;
  unsigned long long m_keys = 0;
  unsigned long long m_sounds = 0;
  unsigned long long m_bytes = 0;
  unsigned long long m_repeated = 0;
  unsigned long long m_missing = 0;
  unsigned long long m_gaps = 0;
  long long m_dueAt = 0;
  std::vector<long long> m_lateness;
};

}  // namespace recordctl

#endif
