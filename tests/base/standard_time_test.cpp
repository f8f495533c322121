#include <random>

#include "base/clock.h"
#include "tests/support/device_test.h"

namespace {

// All around the change of the clocks, in both hemispheres, in a zone without one, and after 2038.
TEST(StandardTime, IsWhatTheCLibraryMakesOfIt) {
  std::mt19937 random(1);
  for (const char* each :
       {"CET-1CEST,M3.5.0,M10.5.0/3", "AEST-10AEDT,M10.1.0,M4.1.0/3", "UTC0", "PST8PDT,M3.2.0,M11.1.0"}) {
    const fake::Zone zone(each);
    for (int n = 0; n < 500; ++n) {
      struct tm fields = {};
      fields.tm_year = static_cast<int>(random() % 150 + 72);
      fields.tm_mon = static_cast<int>(random() % 14) - 1;
      fields.tm_mday = static_cast<int>(random() % 40);
      fields.tm_hour = static_cast<int>(random() % 26);
      fields.tm_min = static_cast<int>(random() % 70);
      fields.tm_sec = static_cast<int>(random() % 70);
      struct tm copy = fields;
      EXPECT_EQ(record::StandardTimeSeconds(fields), mktime(&copy))
          << each << " " << fields.tm_year << " " << fields.tm_mon << " " << fields.tm_mday;
    }
  }
}

}  // namespace
