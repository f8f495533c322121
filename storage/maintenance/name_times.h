// The times that names tell, without the limits of the interface's `long`.
#ifndef STORAGE_MAINTENANCE_NAME_TIMES_H
#define STORAGE_MAINTENANCE_NAME_TIMES_H

#include <ctime>

namespace record {

// False when the name tells none; `time` is then undefined. It is as the name has it, not yet normalised.
struct NameTimes {
  static bool OfFile(const char* directory, const char* name, struct tm& time);
  static bool OfDirectory(const char* name, struct tm& time);
};

}  // namespace record

#endif
