// Deletes recordings, and sets right what stays behind in their directories.
#ifndef RECORDCTL_PRUNER_H
#define RECORDCTL_PRUNER_H

#include <set>
#include <string>

#include "record/maintenance.h"
#include "tools/recordctl/recordings_tree.h"

namespace recordctl {

class Pruner {
 public:
  Pruner() = default;
  ~Pruner() { Settle(); }
  Pruner(const Pruner&) = delete;
  Pruner& operator=(const Pruner&) = delete;

  // The file, its side file, its lock file of a crash; not while somebody uses it.
  DeleteResult Delete(const Recording& recording);

  // Directories of past days without a recording go, with what only belongs to recordings; of the others' type
  // indexes the minutes before the first recording that is left. Done for the directories behind once recordings
  // are deleted in a later day, and at the end.
  void Settle();

 private:
  std::string m_day;
  std::set<std::string> m_touched;
};

}  // namespace recordctl

#endif
