#include "storage/media.h"

#include "base/device_facts.h"
#include "base/device_path.h"
#include "record/platform.h"
#include "storage/layout.h"

namespace record {
namespace {

std::string MediumRoot(int medium) {
  return DevicePath(kMediumRoots.at(static_cast<size_t>(medium)));
}

}  // namespace

bool IsMounted(int medium) {
  return DRIVER_isDeviceMounted(MediumRoot(medium).c_str()) != 0;
}

std::string MediumBase(int medium) {
  const std::string root = MediumRoot(medium);
  return medium == kNetworkShare ? JoinPath(root, SerialNumber()) : root;
}

std::vector<std::string> MountedBases() {
  std::vector<std::string> bases;
  for (int medium = 0; medium < static_cast<int>(kMediumRoots.size()); ++medium) {
    if (IsMounted(medium)) bases.push_back(MediumBase(medium));
  }
  return bases;
}

}  // namespace record
