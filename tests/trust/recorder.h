// A recording process that the test is going to stop: forked off the test, it records without an end and keeps
// the journal.
#ifndef TESTS_TRUST_RECORDER_H
#define TESTS_TRUST_RECORDER_H

#include <sys/types.h>

#include <string>
#include <vector>

#include "tests/trust/frames.h"
#include "tests/trust/journal.h"

namespace trust {

// A task of the same parameters follows as soon as one has ended.
struct Channel {
  int kind;    // RecordKind
  int stream;  // main or sub, with audio
  int durationSeconds;
};

struct RecorderPlan {
  std::string root;  // device root
  std::string extension = ".kmv";
  std::vector<Channel> channels;
  FeedPlan feed;
  int stopEveryMs = 0;  // above 0: all tasks are stopped after so long (varied by half), as short recordings
  int syncIntervalMs = 1000;
  int syncStallMs = 0;  // by which every background sync of a record file takes longer
  bool quiet = false;   // nothing on stderr: the library's shell lines complain about a dead disk
  unsigned seed = 1;
};

class Recorder {
 public:
  // Starts the process. The journal has to outlive it.
  Recorder(const RecorderPlan& plan, Journal& journal);
  ~Recorder() { Kill(); }
  Recorder(const Recorder&) = delete;
  Recorder& operator=(const Recorder&) = delete;

  pid_t Process() const { return m_child; }
  void Kill();  // SIGKILL; returns when the process is gone
  // Whether it was alive until it was killed.
  bool DiedOfTheKill() const { return m_diedOfTheKill; }

 private:
  pid_t m_child;
  bool m_diedOfTheKill = false;
};

// Makes the device's first card below `root`.
bool MakeDevice(const std::string& root);

}  // namespace trust

#endif
