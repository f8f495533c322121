// Which recordings have to go, asked from the oldest on.
#ifndef RECORDCTL_PRUNE_RULE_H
#define RECORDCTL_PRUNE_RULE_H

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "tools/recordctl/recordings_tree.h"

namespace recordctl {

class PruneRule {
 public:
  enum class Verdict { kDelete, kKeep, kStop };  // kStop: neither this one nor any later one

  virtual ~PruneRule() = default;
  // Why nothing at all may be deleted, "" when it may: asked before the first verdict.
  virtual std::string Refusal() const { return ""; }
  virtual Verdict Judge(const Recording& recording) = 0;
  virtual void NoteDeleted(const Recording& recording) = 0;
  virtual std::string Reason() const = 0;
  // What is still missing when nothing is left to judge, "" when nothing is.
  virtual std::string Complaint() const { return ""; }
};

std::unique_ptr<PruneRule> KeepDays(int days);  // today and the days before
std::unique_ptr<PruneRule> KeepNewest(RecordingsTree& tree, long long count);
// On each file system that holds some of the media. `pretend`: nothing is really deleted.
std::unique_ptr<PruneRule> KeepFree(const std::vector<std::string>& bases, RecordingsTree& tree,
                                    long long megabytes, bool pretend);

}  // namespace recordctl

#endif
