#include "storage/maintenance/remove_tree.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>

#include "base/directory.h"

namespace record {
namespace {

// Every level holds a descriptor. What lies deeper is moved up to the top first, so that no depth is too deep.
constexpr int kDeepest = 16;

class TreeRemoval {
 public:
  explicit TreeRemoval(const Directory& top) : m_top(top.Descriptor()) {
    struct stat status;
    if (fstat(m_top, &status) == 0) m_device = status.st_dev;
  }

  // Empties a directory. Entries that stay are passed over.
  void Empty(Directory& directory, int depth) {
    while (const dirent* entry = directory.Next()) {
      const std::string name = entry->d_name;
      if (!directory.IsDirectory(*entry))
        unlinkat(directory.Descriptor(), name.c_str(), 0);
      else if (depth < kDeepest)
        RemoveDirectory(directory.Descriptor(), name, depth + 1);
      else
        MoveUp(directory.Descriptor(), name);
    }
  }
  bool HasMoved() {
    const bool moved = m_moved;
    m_moved = false;
    return moved;
  }

 private:
  void RemoveDirectory(int parent, const std::string& name, int depth) {
    {
      Directory directory(parent, name.c_str());
      struct stat status;
      if (!directory.IsOpen() || fstat(directory.Descriptor(), &status) != 0 || status.st_dev != m_device) return;
      Empty(directory, depth);
    }
    unlinkat(parent, name.c_str(), AT_REMOVEDIR);
  }

  void MoveUp(int parent, const std::string& name) {
    constexpr int kTries = 100;  // a name may be taken
    for (int tries = 0; tries < kTries; ++tries) {
      char above[32];
      std::snprintf(above, sizeof above, ".removed-%u", m_number++);
      if (renameat(parent, name.c_str(), m_top, above) != 0) continue;
      m_moved = true;
      return;
    }
  }

  const int m_top;
  dev_t m_device = 0;
  unsigned m_number = 0;
  bool m_moved = false;
};

}  // namespace

bool RemoveTree(const std::string& path) {
  Directory top(path);
  if (!top.IsOpen()) return false;
  TreeRemoval removal(top);
  do {
    top.Rewind();
    removal.Empty(top, 0);
  } while (removal.HasMoved());
  return rmdir(path.c_str()) == 0;
}

}  // namespace record
