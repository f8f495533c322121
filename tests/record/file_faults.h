// Makes the system's file calls fail when a test says so. The suite's program is linked with --wrap for them.
#ifndef TESTS_RECORD_FILE_FAULTS_H
#define TESTS_RECORD_FILE_FAULTS_H

#include <string>

namespace fake {

enum class FileCall { kOpen, kWrite, kShortWrite, kSkipWrite, kSync, kRead };

// While one lives, calls on files whose path holds `part` (or ends in it, when a '$' follows) are counted, and
// from the k-th on they fail: that one only, or all that follow, too. A short write lets half of the bytes
// through, the next write then fails. A skipped one succeeds and leaves a hole in the file.
class FileFault {
 public:
  FileFault(FileCall call, std::string part, int k, bool forEver, int error);
  ~FileFault();
  FileFault(const FileFault&) = delete;
  FileFault& operator=(const FileFault&) = delete;

  int Calls() const;  // that matched so far
};

// While one lives, syncs of files whose path holds `part` do not come back.
class FileHang {
 public:
  explicit FileHang(std::string part);
  ~FileHang();
  FileHang(const FileHang&) = delete;
  FileHang& operator=(const FileHang&) = delete;

  int Waiting() const;  // syncs that hang now
};

}  // namespace fake

#endif
