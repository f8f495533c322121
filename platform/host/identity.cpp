// Who this recorder is.
#include <cctype>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <mutex>
#include <string>

#include "record_host/host.h"

namespace {

constexpr size_t kLongestSerial = 24;
constexpr size_t kLongestName = sizeof(MediaConfig::deviceName);

// A machine's id is meant to stay on the machine, so the serial is a digest of it (FNV-1a).
std::string DefaultSerial() {
  std::ifstream file("/etc/machine-id");
  std::string id;
  if (!std::getline(file, id) || id.empty()) return "HOST00000001";
  std::uint64_t digest = 0xcbf29ce484222325u;
  for (const char c : id) digest = (digest ^ static_cast<unsigned char>(c)) * 0x100000001b3u;
  char serial[kLongestSerial + 1];
  snprintf(serial, sizeof(serial), "HOST%012llX", static_cast<unsigned long long>(digest & 0xffffffffffffu));
  return serial;
}

struct Identity {
  std::mutex mutex;
  std::string serial = DefaultSerial();
  std::string name = "librecord";
};

Identity& Self() {
  static auto* identity = new Identity;  // threads may outlive main
  return *identity;
}

bool IsSerial(const char* serial) {
  const size_t length = strlen(serial);
  if (length == 0 || length > kLongestSerial || serial[0] == '.') return false;
  for (size_t i = 0; i < length; ++i) {
    const unsigned char c = static_cast<unsigned char>(serial[i]);
    if (c > 0x7f || (!isalnum(c) && strchr("-_.", c) == nullptr)) return false;
  }
  return true;
}

}  // namespace

int HostSetIdentity(const char* serial, const char* deviceName) {
  if (serial != nullptr && !IsSerial(serial)) return -1;
  if (deviceName != nullptr && strlen(deviceName) > kLongestName) return -1;
  Identity& self = Self();
  std::lock_guard<std::mutex> guard(self.mutex);
  if (serial != nullptr) self.serial = serial;
  if (deviceName != nullptr) self.name = deviceName;
  return 0;
}

int MsgGetMediaConfig(MediaConfig* config) {
  if (config == nullptr) return -1;
  memset(config, 0, sizeof(*config));
  Identity& self = Self();
  std::lock_guard<std::mutex> guard(self.mutex);
  memcpy(config->deviceName, self.name.data(), self.name.size());
  return 0;
}

int GetSN(char* serial, int size) {
  if (serial == nullptr || size <= 0) return -1;
  Identity& self = Self();
  std::lock_guard<std::mutex> guard(self.mutex);
  snprintf(serial, static_cast<size_t>(size), "%s", self.serial.c_str());
  return 0;
}
