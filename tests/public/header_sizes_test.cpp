#include "tests/header_sizes.h"

#include <gtest/gtest.h>
#include <sys/types.h>

#include <ctime>

static_assert(sizeof(off_t) == 8, "record files beyond 2 GiB need _FILE_OFFSET_BITS=64 in every build");
static_assert(sizeof(time_t) == 8, "dates beyond 2038 need _TIME_BITS=64 in every build");

namespace {

// An application built without the macros must lay out every record as the library does.
TEST(HeaderSizesTest, AreTheSameWithAndWithoutWideOffsetsAndTimes) {
  int types = 0;
  for (; PublicTypeSizes_plain[types].name != nullptr; ++types) {
    const PublicTypeSize& plain = PublicTypeSizes_plain[types];
    const PublicTypeSize& wide = PublicTypeSizes_wide[types];
    EXPECT_EQ(plain.size, wide.size) << plain.name;
    EXPECT_EQ(plain.alignment, wide.alignment) << plain.name;
  }
  EXPECT_GT(types, 15) << "the list of types was not read from the headers";
}

}  // namespace
