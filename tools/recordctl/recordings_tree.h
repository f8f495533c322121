// The recordings of the mounted media, records and pictures, oldest day first, and everything in their directories
// that is none.
#ifndef RECORDCTL_RECORDINGS_TREE_H
#define RECORDCTL_RECORDINGS_TREE_H

#include <sys/types.h>

#include <map>
#include <set>
#include <string>
#include <vector>

namespace record {
class Directory;
}

namespace recordctl {

struct Recording {
  std::string directory;  // of the day, as it is found on this machine
  std::string name;
  std::string time;  // "YYYYMMDDHHMMSS", which sorts like time
  long long bytes;   // that the medium gets back
  dev_t device;      // file system
  bool isPicture;    // by a snapshot

  std::string Path() const { return directory + "/" + name; }
  std::string Day() const { return time.substr(0, 8); }
};

// Written or, a record, played back just now, by whatever process.
bool IsInUse(const Recording& recording);

// Names are checked, links are never followed; what a day holds is read when it is asked for.
class RecordingsTree {
 public:
  // All kinds of the given media, as directories (see record::MountedBases).
  explicit RecordingsTree(const std::vector<std::string>& bases);

  const std::map<std::string, std::vector<std::string>>& Days() const { return m_days; }  // their directories
  std::vector<Recording> ReadDay(const std::string& day);                                 // oldest first

  // Everything that is neither a recording nor belongs to one. Looks through the days that nobody has read yet
  // (until interrupted).
  const std::set<std::string>& FindOthers();

 private:
  void FindDays(const std::string& kindDirectory);
  // Of the recordings in a day's directory, `path`; adds what else it holds to the others.
  std::vector<std::string> ReadNames(record::Directory& directory, const std::string& path);

  std::map<std::string, std::vector<std::string>> m_days;
  std::set<std::string> m_unread;  // days
  std::set<std::string> m_others;
};

// The recordings one after the other.
class OldestFirst {
 public:
  explicit OldestFirst(RecordingsTree& tree) : m_tree(tree), m_day(tree.Days().begin()) {}
  // Null behind the last. Valid until the next call.
  const Recording* Next();

 private:
  RecordingsTree& m_tree;
  std::map<std::string, std::vector<std::string>>::const_iterator m_day;
  std::vector<Recording> m_recordings;
  size_t m_next = 0;
};

// The day's own files, and side files.
bool IsBesideRecordings(const char* name);

}  // namespace recordctl

#endif
