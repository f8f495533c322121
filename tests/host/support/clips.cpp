#include "tests/host/support/clips.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace record {

TempDir::TempDir() {
  char path[] = "/tmp/record-host-XXXXXX";
  m_path = mkdtemp(path) != nullptr ? path : "";
}

TempDir::~TempDir() {
  std::error_code ignored;
  if (!m_path.empty()) std::filesystem::remove_all(m_path, ignored);
}

std::string ReadFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

void WriteFile(const std::string& path, const std::string& content) {
  std::filesystem::create_directories(std::filesystem::path(path).parent_path());
  std::ofstream(path, std::ios::binary) << content;
}

std::string Clip(const std::string& name, double seconds, const std::string& options) {
  static const TempDir directory;
  const std::string path = directory.Path() + "/" + name;
  if (access(path.c_str(), R_OK) == 0) return path;
  char inputs[256];
  snprintf(inputs, sizeof(inputs),
           "-f lavfi -i testsrc2=size=160x120:rate=25:duration=%g -f lavfi -i sine=sample_rate=8000:duration=%g",
           seconds, seconds);
  const std::string command = std::string("ffmpeg -v error -nostdin -y ") + inputs + " " + options + " " + path;
  return system(command.c_str()) == 0 ? path : "";
}

}  // namespace record
