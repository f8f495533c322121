#include "format/measured_rate.h"

#include <algorithm>
#include <limits>

#include "base/log.h"

namespace record {
namespace {

int RoundedRate(long long frames, double milliseconds) {
  const double rate = static_cast<double>(frames) * 1000.0 / milliseconds;
  if (rate >= std::numeric_limits<int>::max()) return std::numeric_limits<int>::max();
  int rounded = static_cast<int>(rate);
  if (static_cast<float>(rounded) + 0.5 <= rate) ++rounded;
  return rounded;
}

}  // namespace

int MeasuredVideoRate(long long frames, double milliseconds, int configured) {
  if (!(milliseconds > 0)) return configured;
  const int lowest = configured < std::numeric_limits<int>::min() + 5 ? configured : configured - 5;
  return std::min(std::max(RoundedRate(frames, milliseconds), lowest), configured);
}

int MeasuredAudioRate(long long frames, double milliseconds, int configured) {
  return milliseconds > 0 ? RoundedRate(frames, milliseconds) : configured;
}

int CalVideoFramerate(int videoFrames, std::int32_t& preRecorded, double milliseconds,
                      const RECORD_TASK_PARAM& param) {
  const auto duration = static_cast<double>(static_cast<float>(milliseconds));
  if (!(duration > 0)) return param.framerate;
  preRecorded = static_cast<int>(
      std::min<long long>(preRecorded, static_cast<long long>(param.framerate) * param.pre_second));
  const int frames = videoFrames - preRecorded;
  RECORD_LOG("1: videoframes=%d, pre_record_video_frames=%d, duration=%f ms, real video framerate=%f\n\n",
             videoFrames, preRecorded, duration, frames * 1000.0 / duration);
  const int rate = MeasuredVideoRate(frames, duration, param.framerate);
  RECORD_LOG("2: videoframes=%d, pre_record_video_frames=%d, duration=%f ms, real video framerate=%d\n\n",
             videoFrames, preRecorded, duration, rate);
  return rate;
}

}  // namespace record
