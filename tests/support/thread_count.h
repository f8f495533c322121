// How many threads this process has.
#ifndef TESTS_SUPPORT_THREAD_COUNT_H
#define TESTS_SUPPORT_THREAD_COUNT_H

#include <cstddef>
#include <filesystem>
#include <iterator>

namespace fake {

// One that was joined may be counted for an instant yet, one that the thread checker started for itself always.
inline std::ptrdiff_t ThreadCount() {
  const std::filesystem::directory_iterator tasks("/proc/self/task");
  return std::distance(begin(tasks), end(tasks));
}

}  // namespace fake

#endif
