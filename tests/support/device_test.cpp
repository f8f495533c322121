#include "tests/support/device_test.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "base/device_path.h"

namespace fake {

std::string ReadFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::ostringstream content;
  content << file.rdbuf();
  return content.str();
}

void WriteFile(const std::string& path, const std::string& content) {
  std::filesystem::create_directories(std::filesystem::path(path).parent_path());
  std::ofstream(path, std::ios::binary) << content;
}

bool Exists(const std::string& path) {
  return access(path.c_str(), F_OK) == 0;
}

int OpenDescriptors() {
  int count = 0;
  for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) ++count;
  return count;
}

void SetChanged(const std::string& path, long long seconds) {
  const timespec changed = {static_cast<time_t>(seconds), 0};
  const timespec times[2] = {changed, changed};
  ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW), 0);
}

Zone::Zone(const char* name) {
  const char* before = std::getenv("TZ");
  m_before = before != nullptr ? before : "";
  setenv("TZ", name, 1);
  tzset();
}

Zone::~Zone() {
  m_before.empty() ? unsetenv("TZ") : setenv("TZ", m_before.c_str(), 1);
  tzset();
}

DeviceTest::DeviceTest() : m_descriptors(OpenDescriptors()) {
  const char* parent = access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp";
  std::string directory = std::string(parent) + "/record-test-XXXXXX";
  if (mkdtemp(directory.data()) == nullptr) std::abort();
  m_root = directory;
  for (const char* each : {"/tmp", "/mnt", "/opt/zq"}) std::filesystem::create_directories(m_root + each);
  SetDeviceRoot(m_root.c_str());
  m_platform.Reset();
  m_streams.Reset();
  m_mp4.Reset();
  m_clock.Reset(2024, 1, 31, 8, 15, 0);
  InstallClock();
}

DeviceTest::~DeviceTest() {
  EXPECT_THAT(m_streams.Violations(), ::testing::IsEmpty());
  EXPECT_EQ(m_mp4.handles, 0) << "a multiplexer or demultiplexer was left open";
  EXPECT_EQ(OpenDescriptors(), m_descriptors) << "a descriptor was left open";
  record::SetClockSource(nullptr);
  SetDeviceRoot("");
  std::filesystem::remove_all(m_root);
}

void DeviceTest::Mount(int medium, int freeMB) {
  const std::string root = record::kMediumRoots[static_cast<size_t>(medium)];
  std::filesystem::create_directories(Path(root));
  m_platform.mounted.insert(root);
  m_platform.freeMB[medium] = freeMB;
}

std::string DeviceTest::WithoutRoot(std::string text) const {
  const size_t at = text.find(m_root);
  return at != std::string::npos ? text.erase(at, m_root.size()) : text;
}

void DeviceTest::SetFlag(const char* flagFile) {
  WriteFile(Path(flagFile), "");
}

}  // namespace fake
