// A test with a device of its own: a temporary device root, the fake platform and its clock.
#ifndef TESTS_SUPPORT_DEVICE_TEST_H
#define TESTS_SUPPORT_DEVICE_TEST_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "tests/support/fake_mp4.h"
#include "tests/support/fake_platform.h"

namespace fake {

std::string ReadFile(const std::string& path);                        // "" when it is not there
void WriteFile(const std::string& path, const std::string& content);  // makes the directories
bool Exists(const std::string& path);
int OpenDescriptors();                                        // of this process
void SetChanged(const std::string& path, long long seconds);  // its time, since 1970; of a link its own

// Local time is that zone's while one lives.
class Zone {
 public:
  explicit Zone(const char* name);
  ~Zone();
  Zone(const Zone&) = delete;
  Zone& operator=(const Zone&) = delete;

 private:
  std::string m_before;
};

class DeviceTest : public ::testing::Test {
 protected:
  DeviceTest();
  ~DeviceTest() override;

  void Mount(int medium, int freeMB);  // makes its directory, too
  void SetFlag(const char* flagFile);
  std::string Path(const std::string& devicePath) const { return m_root + devicePath; }
  std::string WithoutRoot(std::string text) const;  // text in which a path may stand

  Platform& m_platform = Platform::Get();
  Clock& m_clock = Clock::Get();
  Streams& m_streams = Streams::Get();
  Mp4& m_mp4 = Mp4::Get();
  std::string m_root;

 private:
  int m_descriptors;
};

}  // namespace fake

#endif
