// Keeps some space free for a recording by deleting the oldest ones.
#ifndef RECORDCTL_ROOM_KEEPER_H
#define RECORDCTL_ROOM_KEEPER_H

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "tools/recordctl/options.h"
#include "tools/recordctl/pruner.h"
#include "tools/recordctl/recordings_tree.h"

namespace recordctl {

constexpr int kLeastFreeMB = 501;  // with less the library begins no file

// Nothing is deleted where it would not do: on a medium that cannot come to what is wanted, however much goes.
class RoomKeeper {
 public:
  RoomKeeper(const Options& options, int freeMB);

  // Before the first recording: says so when no local medium can have as much free as was asked for.
  bool CanMakeRoom() const;
  // Before a file begins: until one of the local media has that much free. Should something else have filled them
  // since, so much that a file can begin.
  void MakeRoom();
  // Once in a while as the file grows, `path`: deletes at most one recording a call, so that nobody waits for
  // long.
  void Tend(const std::string& path);

 private:
  using Clock = std::chrono::steady_clock;

  // From here to End recordings may be deleted, on those of `bases` that can come to the goal. False: on none.
  bool Begin(const std::vector<std::string>& bases, long long goalMB);
  bool BeginBeside(const std::string& directory, long long hereMB);
  bool DeleteOldest();
  void End();
  void Complain(long long goalMB, const char* why);

  const Options& m_options;
  const long long m_freeMB;
  Clock::time_point m_next;  // no look before
  // Between Begin and End:
  long long m_goalMB = 0;
  std::unique_ptr<RecordingsTree> m_tree;
  std::unique_ptr<OldestFirst> m_oldest;
  Pruner m_pruner;
  bool m_hasComplained = false;
};

}  // namespace recordctl

#endif
