#include "tools/recordctl/free_room.h"

#include <sys/stat.h>
#include <sys/statvfs.h>

#include <algorithm>

namespace recordctl {
namespace {

long long BytesOf(const struct statvfs& space, fsblkcnt_t blocks) {
  return static_cast<long long>(blocks) * static_cast<long long>(space.f_frsize);
}

long long SizeOf(const std::string& directory) {
  struct statvfs space;
  return statvfs(directory.c_str(), &space) == 0 ? BytesOf(space, space.f_blocks) : 0;
}

}  // namespace

long long FreeBytes(const std::string& directory) {
  struct statvfs space;
  return statvfs(directory.c_str(), &space) == 0 ? BytesOf(space, space.f_bavail) : -1;
}

long long FreeMB(const std::string& directory) {
  const long long bytes = FreeBytes(directory);
  return bytes < 0 ? bytes : bytes / kMegabyte;
}

std::string FreeRoom::Refusal(long long megabytes) const {
  return directory + " cannot have " + std::to_string(megabytes) +
         " MB free: with every recording deleted that is not in use it would have " +
         std::to_string(reachable / kMegabyte) + " MB";
}

std::map<dev_t, FreeRoom> FindRoom(const std::vector<std::string>& bases, RecordingsTree& tree,
                                   long long megabytes) {
  std::map<dev_t, FreeRoom> rooms;
  struct stat status;
  for (const std::string& base : bases) {
    if (stat(base.c_str(), &status) != 0) continue;
    const long long bytes = FreeBytes(base);
    rooms.try_emplace(status.st_dev, FreeRoom{base, bytes, bytes});
  }
  const auto isSettled = [megabytes](const FreeRoom& room) { return room.bytes < 0 || room.CanReach(megabytes); };
  const auto areSettled = [&] {
    return std::all_of(rooms.begin(), rooms.end(), [&](const auto& each) { return isSettled(each.second); });
  };
  OldestFirst recordings(tree);
  while (const Recording* recording = areSettled() ? nullptr : recordings.Next()) {
    const auto found = rooms.find(recording->device);
    if (found == rooms.end() || isSettled(found->second)) continue;
    if (IsInUse(*recording)) continue;
    found->second.reachable += recording->bytes;
  }
  // Whatever a damaged file system tells of its files, it never has more than it holds.
  for (auto& [device, room] : rooms) room.reachable = std::min(room.reachable, SizeOf(room.directory));
  return rooms;
}

}  // namespace recordctl
