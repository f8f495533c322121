#include "record/log_prefix.h"

#include <algorithm>
#include <cstring>
#include <memory>

#include "base/device_facts.h"
#include "base/log.h"
#include "record/platform.h"

namespace record {
namespace {

constexpr size_t kDeviceNameMax = 200;
constexpr size_t kLogPrefixMax = 220;

}  // namespace

std::string LogPrefix() {
  const std::string serial = SerialNumber();
  const auto media = std::make_unique<MediaConfig>();
  if (MsgGetMediaConfig(media.get()) != 0) {
    RECORD_LOG_TEXT("MsgGetMediaConfig failed!!!\n\n");
    return "[" + serial + "]";
  }
  const std::string name(media->deviceName, strnlen(media->deviceName, kDeviceNameMax));
  std::string prefix = "[" + serial + "][" + name;
  prefix.resize(std::min(prefix.size(), prefix.find('^')));
  return prefix.substr(0, kLogPrefixMax - 2) + "]";
}

}  // namespace record
