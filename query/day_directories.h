// The directories that a day's files lie in, kept open while they are read one by one.
#ifndef QUERY_DAY_DIRECTORIES_H
#define QUERY_DAY_DIRECTORIES_H

#include <string>
#include <vector>

namespace record {

// A day lies in few directories, one a medium and kind. The kernel then looks up a file's own name instead of
// its whole path.
class DayDirectories {
 public:
  struct Place {
    int directory;
    const char* path;  // below it
  };

  DayDirectories() = default;
  ~DayDirectories();
  DayDirectories(const DayDirectories&) = delete;
  DayDirectories& operator=(const DayDirectories&) = delete;

  // What openat() and its like find `path` by, as they would find it whole. Valid as long as `path`.
  Place Find(const std::string& path);

 private:
  struct OpenDirectory {
    std::string path;  // with the slash behind it
    int descriptor;
  };
  std::vector<OpenDirectory> m_open;
};

}  // namespace record

#endif
