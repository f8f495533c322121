// From the time stamps of a container to those of the wall clock.
#ifndef PLATFORM_HOST_TIMELINE_H
#define PLATFORM_HOST_TIMELINE_H

#include <optional>

namespace record {

// All times in milliseconds. Output never runs backwards within a track. A jump of the input makes no jump
// of the output beyond what the wall clock asks for.
class Timeline {
 public:
  enum Track { kVideo = 0, kAudio = 1 };
  struct Stamp {
    double ms;
    bool jumped;  // the input went back, or ahead by more than 10 s: something is missing
  };

  // A live source keeps to the wall clock for ever; a file starts by it and then has its own pace.
  // Nothing is placed before `floorMs`.
  Timeline(bool isLive, double floorMs) : m_isLive(isLive), m_floorMs(floorMs) {}

  // Places a packet. Without an input time it follows its predecessor. `wallMs` is the present.
  Stamp Place(Track track, std::optional<double> inputMs, double durationMs, double wallMs);

  // The input starts anew: a file at its end that is looped, a connection that was made again. What comes
  // next follows what came last, or the wall clock when that is later (live) - `anchorMs`.
  void Restart();
  // When the first packet to come was taken, if that is earlier than it is placed.
  void SetAnchor(double wallMs) { m_anchorMs = wallMs; }

 private:
  struct State {
    std::optional<double> lastInputMs;
    std::optional<double> offsetMs;  // output - input
    std::optional<double> lastOutputMs;
    double durationMs = 0;
  };

  Stamp PlaceUntimed(State* state, const State& other, double wallMs);
  bool HasJumped(const State& state, double inputMs) const;
  double NewOffset(const State& state, const State& other, double inputMs, double wallMs);
  void FollowClock(double outputMs, double stepMs, double wallMs);

  const bool m_isLive;
  const double m_floorMs;
  State m_tracks[2];
  std::optional<double> m_anchorMs;
};

}  // namespace record

#endif
