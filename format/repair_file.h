// Writing a new end into a record file that nobody writes any more.
#ifndef FORMAT_REPAIR_FILE_H
#define FORMAT_REPAIR_FILE_H

#include <cstddef>
#include <string>

#include "format/frame_totals.h"

namespace record {

class RepairFile {
 public:
  RepairFile() = default;
  ~RepairFile();
  RepairFile(const RepairFile&) = delete;
  RepairFile& operator=(const RepairFile&) = delete;

  // Opens it unless it has changed its size since it was looked into. "", or why not.
  std::string Open(const char* path, long long sizeBefore);
  bool WriteAt(long long offset, const void* data, std::size_t length);
  bool Sync();
  bool SetSize(long long size);
  // "" when all of the above came through and reached the medium, or why not.
  std::string Close();

 private:
  bool Note(bool succeeded);

  int m_descriptor = -1;
  int m_error = 0;
};

// The repair, failed for that reason.
FileRepair FailRepair(FileRepair repair, const char* path, const std::string& why);

}  // namespace record

#endif
