// The stream service of the fake platform: each stream is a function of the clock, so that a reader finds the
// same frames whenever it looks, and faults are told in frame numbers.
#ifndef TESTS_SUPPORT_FAKE_STREAMS_H
#define TESTS_SUPPORT_FAKE_STREAMS_H

#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "record/platform.h"

namespace fake {

// Frame `index` of a stream carries its number in its bytes: "v0:123:" and a filler.
struct StreamPlan {
  bool video = true;
  int framesPerSecond = 25;
  int framesPerGroup = 50;
  int frameBytes = 120;
  double startMs = 0;  // wall time of frame 0; frames before "now" exist already
  std::string config = std::string("\0\0\0\1CONFIG", 10);
  bool configKnown = true;
  std::set<std::int64_t> lost;                  // frames that never arrive: a gap in the numbers
  std::function<int(std::int64_t)> bytesOf;     // overrides frameBytes
  std::function<double(std::int64_t)> delayMs;  // frame is there that much later than its time
  std::int64_t renumberedFrom = -1;             // from this key frame on numbers begin at 0 again
  int registrationsToRefuse = 0;
  std::set<int> readsToFail;  // numbers of STREAM_READ calls (from 1) that return an error
  int forcedKeys = 0;         // SetForceIdr calls seen
};

class Streams {
 public:
  static Streams& Get();
  void Reset();
  StreamPlan& Plan(int stream);  // creates it; set it up before readers run
  void Remove(int stream);

  int Call(int command, int stream, std::uintptr_t reader, void* arg);
  int ForceKey(int stream);

  int ReaderCount();
  std::vector<std::string> Violations();  // broken rules of the service, such as a read without a release

  static std::string Payload(int stream, std::int64_t index, int bytes);
  static bool IsKey(const StreamPlan& plan, std::int64_t index);
  static double Stamp(const StreamPlan& plan, std::int64_t index);

 private:
  struct Reader {
    std::int64_t next = 0;
    bool holds = false;
    std::string data;
    int reads = 0;
  };
  int Register(int stream, std::uintptr_t reader, double* lookBackMs);
  int Read(int stream, std::uintptr_t reader, StreamFrame* frame);

  std::mutex m_mutex;
  std::map<int, StreamPlan> m_plans;
  std::map<std::pair<int, std::uintptr_t>, Reader> m_readers;
  std::vector<std::string> m_violations;
};

}  // namespace fake

#endif
