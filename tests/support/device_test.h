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
int OpenDescriptors();  // of this process

class DeviceTest : public ::testing::Test {
 protected:
  DeviceTest();
  ~DeviceTest() override;

  void Mount(int medium, int freeMB);  // makes its directory, too
  void SetFlag(const char* flagFile);
  std::string Path(const std::string& devicePath) const { return m_root + devicePath; }

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
