// Room is reserved for an output, and what is left of it given back.
#include "export/output_room.h"

#include <gtest/gtest.h>
#include <linux/magic.h>
#include <sys/stat.h>
#include <sys/vfs.h>

#include <cstdint>
#include <fstream>
#include <string>

#include "tests/support/device_test.h"

namespace {

class OutputRoomTest : public fake::DeviceTest {
 protected:
  std::int64_t Taken() const {
    constexpr std::int64_t kBlock = 512;
    struct stat status = {};
    EXPECT_EQ(0, stat(m_path.c_str(), &status));
    return status.st_blocks * kBlock;
  }
  std::int64_t Length() const {
    struct stat status = {};
    EXPECT_EQ(0, stat(m_path.c_str(), &status));
    return status.st_size;
  }

  const std::string m_path = m_root + "/out.mp4.part";
};

TEST_F(OutputRoomTest, IsNoPartOfTheFileAndGivenBack) {
  std::ofstream file(m_path, std::ios::binary);
  struct statfs medium = {};
  ASSERT_EQ(0, statfs(m_path.c_str(), &medium));
  record::OutputRoom room;
  room.Begin(m_path);
  room.Need(100);
  const std::int64_t reserved = medium.f_type == EXT4_SUPER_MAGIC ? 4 << 20 : 0;
  EXPECT_EQ(Taken(), reserved);
  room.Need(4 << 20);
  EXPECT_EQ(Taken(), 2 * reserved);
  EXPECT_EQ(Length(), 0);
  file << std::string(100000, 'x') << std::flush;
  room.GiveBack();
  EXPECT_EQ(Length(), 100000);
  EXPECT_LT(Taken(), 200000);
  room.Need(100);
  EXPECT_LT(Taken(), 200000) << "reserved again";
}

}  // namespace
