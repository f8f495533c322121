// How much is free on the media's file systems, and how much deleting recordings could make free.
#ifndef RECORDCTL_FREE_ROOM_H
#define RECORDCTL_FREE_ROOM_H

#include <sys/types.h>

#include <map>
#include <string>
#include <vector>

#include "tools/recordctl/recordings_tree.h"

namespace recordctl {

constexpr long long kMegabyte = 1048576;
// Free on the file system of a directory; -1 when it cannot be told.
long long FreeBytes(const std::string& directory);
long long FreeMB(const std::string& directory);

// A file system that holds some of the media.
struct FreeRoom {
  std::string directory;  // of one of them
  long long bytes;        // free; below 0: it cannot be told
  long long reachable;    // free once enough of its recordings are deleted, or all when even that is too little

  bool CanReach(long long megabytes) const { return bytes >= 0 && reachable / kMegabyte >= megabytes; }
  // Why it cannot.
  std::string Refusal(long long megabytes) const;
};

// What each file system could come to, by its device number: asked before the first recording goes, as a goal that
// cannot be met would cost them all. Recordings in use stay, so they do not count.
std::map<dev_t, FreeRoom> FindRoom(const std::vector<std::string>& bases, RecordingsTree& tree,
                                   long long megabytes);

}  // namespace recordctl

#endif
