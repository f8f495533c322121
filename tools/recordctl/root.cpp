#include "tools/recordctl/root.h"

#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <vector>

#include "record/storage.h"
#include "storage/layout.h"
#include "tools/recordctl/media_kinds.h"
#include "tools/recordctl/output.h"

namespace fs = std::filesystem;

namespace recordctl {
namespace {

constexpr const char* kTree[] = {"/mnt/mmc0", "/tmp", "/opt/zq"};

std::string Absolute(const std::string& path) {
  std::error_code ignored;
  std::string absolute = fs::absolute(path, ignored).lexically_normal().string();
  while (absolute.size() > 1 && absolute.back() == '/') absolute.pop_back();
  return absolute;
}

bool IsDayName(const std::string& name) {
  return name.size() == 8 && name.find_first_not_of("0123456789") == std::string::npos;
}

// <root>/mnt/<medium>/<kind>/<day>/<name>: its parts from the end.
struct RecordPlace {
  std::string day;
  std::string kind;
  std::string root;  // "" when the file does not lie in a device tree
};

RecordPlace PlaceOf(const std::string& recordFile) {
  RecordPlace place;
  const fs::path day = fs::path(Absolute(recordFile)).parent_path();
  if (!IsDayName(day.filename().string())) return place;
  place.day = day.filename().string();
  const fs::path kind = day.parent_path();
  place.kind = kind.filename().string();
  const fs::path mnt = kind.parent_path().parent_path();
  if (mnt.filename() == "mnt") place.root = mnt.parent_path().string();
  if (place.root == "/") place.root.clear();
  return place;
}

}  // namespace

std::string DefaultRoot() {
  const char* root = std::getenv("RECORD_ROOT");
  return root != nullptr && root[0] != '\0' ? root : "recordings";
}

bool UseRoot(const Options& options) {
  const std::string absolute = Absolute(options.root);
  if (SetDeviceRoot(absolute == "/" ? "" : absolute.c_str()) == 0) return true;
  Say("root " + absolute + " is too long: 160 bytes are the most");
  return false;
}

bool MakeRoot(const Options& options) {
  if (!UseRoot(options)) return false;
  for (const char* directory : kTree) {
    std::error_code error;
    fs::create_directories(DevicePath(directory), error);
    if (!error && access(DevicePath(directory).c_str(), W_OK) != 0) error = {errno, std::generic_category()};
    if (!error) continue;
    Say("cannot write into root " + options.root + ": " + ShownPath(options, directory) + ": " + error.message());
    return false;
  }
  return true;
}

std::string ShownPath(const Options& options, const std::string& devicePath) {
  std::string root = options.root;
  while (!root.empty() && root.back() == '/') root.pop_back();
  return root + devicePath;
}

std::string ShownFile(const Options& options, const std::string& path) {
  return path.empty() ? path : ShownPath(options, path.substr(std::strlen(GetDeviceRoot())));
}

std::string FindFile(const Options& options, const std::string& name) {
  if (access(name.c_str(), F_OK) == 0 || name.empty() || name[0] != '/') return name;
  const std::string below = ShownPath(options, name);
  return access(below.c_str(), F_OK) == 0 ? below : name;
}

std::string LockFileOf(const std::string& recordFile) {
  const RecordPlace place = PlaceOf(recordFile);
  if (place.day.empty()) return "";
  const std::string name = fs::path(recordFile).filename().string();
  if (!place.root.empty()) return place.root + "/tmp/" + place.day + name;
  return record::LockFilePath((place.day + "/" + name).c_str());
}

std::string KindOf(const std::string& recordFile) {
  const std::string kind = PlaceOf(recordFile).kind;
  return FindKind(kind) != nullptr ? kind : "";
}

}  // namespace recordctl
