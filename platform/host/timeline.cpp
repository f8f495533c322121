#include "platform/host/timeline.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace record {
namespace {

constexpr double kForwardJumpMs = 10000;
constexpr double kBackwardJumpMs = 500;   // less is disorder, which is bent straight
constexpr double kDriftMs = 200;          // cameras' clocks run fast or slow; so much is let be
constexpr double kSlewPerMs = 0.01;       // how fast a drift is made good
constexpr double kClockWasSetMs = 60000;  // beyond this the wall clock was set, not the camera wrong

}  // namespace

bool Timeline::HasJumped(const State& state, double inputMs) const {
  if (!state.lastInputMs) return false;
  const double step = inputMs - *state.lastInputMs;
  return step < -kBackwardJumpMs || step > kForwardJumpMs;
}

// The other track's offset where it fits, so that picture and sound stay together.
double Timeline::NewOffset(const State& state, const State& other, double inputMs, double wallMs) {
  if (other.offsetMs) {
    const double output = inputMs + *other.offsetMs;
    const double last = state.lastOutputMs ? *state.lastOutputMs : *other.lastOutputMs;
    const double slack = state.lastOutputMs ? kBackwardJumpMs : kForwardJumpMs;
    if (output >= last - slack && output <= last + kForwardJumpMs) return *other.offsetMs;
  }
  const bool isFirst = !state.lastOutputMs && !other.lastOutputMs;
  double output = isFirst || m_isLive ? m_anchorMs.value_or(wallMs) : 0;
  output = std::max(output, m_floorMs);
  m_anchorMs.reset();
  for (const State& track : m_tracks) {
    if (track.lastOutputMs) output = std::max(output, *track.lastOutputMs + track.durationMs);
  }
  return output - inputMs;
}

void Timeline::FollowClock(double outputMs, double stepMs, double wallMs) {
  const double late = wallMs - outputMs;
  double correction = 0;
  if (late > kClockWasSetMs) {
    correction = late;
  } else if (std::fabs(late) > kDriftMs) {
    correction = std::copysign(std::clamp(stepMs, 0.0, 1000.0) * kSlewPerMs, late);
  }
  for (State& track : m_tracks) {
    if (track.offsetMs) *track.offsetMs += correction;
  }
}

// A packet without a time before any that has one (a parser's first frame, elementary streams).
Timeline::Stamp Timeline::PlaceUntimed(State* state, const State& other, double wallMs) {
  const bool isFirst = !state->lastOutputMs && !other.lastOutputMs;
  double output = isFirst ? std::max(wallMs, m_floorMs) : 0;
  if (m_anchorMs) output = std::max(*m_anchorMs, m_floorMs);
  if (state->lastOutputMs) output = std::max(output, *state->lastOutputMs + state->durationMs);
  if (other.lastOutputMs) output = std::max(output, *other.lastOutputMs);
  state->lastOutputMs = output;
  return {output, false};
}

Timeline::Stamp Timeline::Place(Track track, std::optional<double> inputMs, double durationMs, double wallMs) {
  State& state = m_tracks[track];
  const double length = std::exchange(state.durationMs, durationMs > 0 ? durationMs : state.durationMs);
  if (!inputMs && !state.lastInputMs) return PlaceUntimed(&state, m_tracks[1 - track], wallMs);
  const double input = inputMs ? *inputMs : *state.lastInputMs + length;
  const bool jumped = HasJumped(state, input);
  if (jumped || !state.offsetMs) {
    state.offsetMs = NewOffset(state, m_tracks[1 - track], input, wallMs);
  } else if (m_isLive && track == kVideo) {
    FollowClock(input + *state.offsetMs, input - *state.lastInputMs, wallMs);
  }
  const double output = std::max(input + *state.offsetMs, state.lastOutputMs.value_or(0.0));
  state.lastInputMs = input;
  state.lastOutputMs = output;
  return {output, jumped};
}

void Timeline::Restart() {
  for (State& track : m_tracks) {
    track.lastInputMs.reset();
    track.offsetMs.reset();
  }
  m_anchorMs.reset();
}

}  // namespace record
