#include "storage/lock_state.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

namespace record {
namespace {

TEST(LockState, TellsHeldFromLeftBehind) {
  char directory[] = "/tmp/lock_state_XXXXXX";
  ASSERT_NE(mkdtemp(directory), nullptr);
  const std::string path = std::string(directory) + "/20240131081500-av-1.kmv";
  EXPECT_EQ(GetLockState(path), LockState::None);

  const int file = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0);
  ASSERT_GE(file, 0);
  EXPECT_EQ(GetLockState(path), LockState::Stale);
  ASSERT_EQ(flock(file, LOCK_EX | LOCK_NB), 0);
  EXPECT_EQ(GetLockState(path), LockState::Held);
  close(file);
  EXPECT_EQ(GetLockState(path), LockState::Stale);

  unlink(path.c_str());
  EXPECT_EQ(GetLockState(path), LockState::None);
  rmdir(directory);
}

}  // namespace
}  // namespace record
