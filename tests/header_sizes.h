// The sizes of all types of the public headers, as two translation units with different macros see them.
#ifndef TESTS_HEADER_SIZES_H
#define TESTS_HEADER_SIZES_H

#include <cstddef>

struct PublicTypeSize {
  const char* name;
  std::size_t size;
  std::size_t alignment;
};

// The table ends with a null name.
extern const PublicTypeSize PublicTypeSizes_plain[];  // compiled without _FILE_OFFSET_BITS and _TIME_BITS
extern const PublicTypeSize PublicTypeSizes_wide[];   // compiled with both as 64

#endif
