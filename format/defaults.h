// What a reader or a writer takes for granted where a file or a stream does not tell, and how readers give
// numbers.
#ifndef FORMAT_DEFAULTS_H
#define FORMAT_DEFAULTS_H

#include <algorithm>
#include <cstdint>
#include <limits>

namespace record {

constexpr std::uint32_t kDefaultFramerate = 25;
constexpr std::uint32_t kDefaultInterval = 1000 / kDefaultFramerate;  // milliseconds

// The interface counts in int.
inline int ToInt(unsigned long long value) {
  return static_cast<int>(std::min<unsigned long long>(value, std::numeric_limits<int>::max()));
}

}  // namespace record

#endif
