// The interface hands out times as `long`. Where that has 32 bits they are taken unsigned, 1970 to 2106, so that
// days behind January 2038 keep their order and their date.
#ifndef BASE_TIME_WORD_H
#define BASE_TIME_WORD_H

#include <algorithm>
#include <climits>
#include <cstdint>

namespace record {

inline long ToTimeWord(long long seconds) {
  if constexpr (sizeof(long) < sizeof(long long))
    return static_cast<long>(
        static_cast<std::uint32_t>(std::clamp(seconds, 0LL, static_cast<long long>(UINT32_MAX))));
  else
    return static_cast<long>(seconds);
}

inline long long FromTimeWord(long word) {
  if constexpr (sizeof(long) < sizeof(long long))
    return static_cast<std::uint32_t>(word);
  else
    return word;
}

}  // namespace record

#endif
