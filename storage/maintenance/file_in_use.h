// Whether somebody uses a file that clean-up has found.
#ifndef STORAGE_MAINTENANCE_FILE_IN_USE_H
#define STORAGE_MAINTENANCE_FILE_IN_USE_H

#include <string>

namespace record {

// A running task of this process writes exactly this file. Repeated slashes in the path make no difference.
bool IsWrittenByTask(const std::string& path);

// A running task of this process writes into exactly this directory. Repeated slashes make no difference.
bool IsDirectoryOfTask(const std::string& path);

// Any process writes it, or it is played back here. A side file is in use with its record file, another file with
// its directory.
bool IsFileInUse(const std::string& directory, const std::string& name);

}  // namespace record

#endif
