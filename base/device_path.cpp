#include "base/device_path.h"

#include <unistd.h>

#include <cctype>
#include <cstring>

#include "base/no_throw.h"

namespace record {
namespace {

constexpr size_t kMaxDeviceRoot = 160;
std::string& DeviceRoot() {
  static auto* root = new std::string;  // never destroyed: detached threads may still ask while the process ends
  return *root;
}

}  // namespace

bool HasFlag(const char* flagFile) {
  return access(DevicePath(flagFile).c_str(), F_OK) == 0;
}

std::string ShellWord(const std::string& path) {
  const auto plain = [](unsigned char c) {
    return std::isalnum(c) != 0 || std::strchr("/._-+,:@%=", c) != nullptr;
  };
  bool quote = path.empty();
  for (const char c : path) quote = quote || c == '\0' || !plain(static_cast<unsigned char>(c));
  if (!quote) return path;
  std::string word = "'";
  for (const char c : path) {
    if (c == '\'')
      word += "'\\''";
    else
      word += c;
  }
  return word + "'";
}

}  // namespace record

int SetDeviceRoot(const char* directory) try {
  std::string root = directory != nullptr ? directory : "";
  while (!root.empty() && root.back() == '/') root.pop_back();
  if (root.size() > record::kMaxDeviceRoot) return -1;
  record::DeviceRoot() = root;
  return 0;
}
RECORD_NO_THROW(-1)

const char* GetDeviceRoot() {
  return record::DeviceRoot().c_str();
}

std::string DevicePath(const std::string& path) {
  return record::DeviceRoot() + path;
}
