#include "query/day_directories.h"

#include <fcntl.h>
#include <unistd.h>

#include <string_view>

namespace record {
namespace {

constexpr size_t kMostOpen = 16;  // four kinds on four media

}  // namespace

DayDirectories::~DayDirectories() {
  for (const OpenDirectory& each : m_open) close(each.descriptor);
}

DayDirectories::Place DayDirectories::Find(const std::string& path) {
  const Place whole = {AT_FDCWD, path.c_str()};
  const size_t length = path.rfind('/') + 1;
  const std::string_view parent = std::string_view(path).substr(0, length);
  for (const OpenDirectory& each : m_open) {
    if (each.path == parent) return {each.descriptor, path.c_str() + length};
  }
  if (length == 0 || m_open.size() == kMostOpen) return whole;
  OpenDirectory& opened = m_open.emplace_back(OpenDirectory{std::string(parent), -1});
  opened.descriptor = open(opened.path.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
  if (opened.descriptor >= 0) return {opened.descriptor, path.c_str() + length};
  m_open.pop_back();
  return whole;
}

}  // namespace record
