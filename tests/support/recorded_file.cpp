#include "tests/support/recorded_file.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>

#include "record/task_manager.h"
#include "tests/format/kmv_bytes.h"
#include "tests/support/device_test.h"

namespace fake {

using kmvtest::GetU32;
std::int64_t RecordedPacket::StreamIndex() const {
  const size_t colon = payload.find(':');
  return colon == std::string::npos ? -1 : std::atoll(payload.c_str() + colon + 1);
}

std::vector<std::int64_t> RecordedFile::Indices(bool audio) const {
  std::vector<std::int64_t> indices;
  for (const RecordedPacket& packet : packets) {
    if (packet.audio == audio) indices.push_back(packet.StreamIndex());
  }
  return indices;
}

RecordedFile ReadRecordedFile(const std::string& path) {
  RecordedFile file = {path, ReadFile(path), {}, 404};
  const std::string& b = file.bytes;
  while (file.end + 24 <= b.size() && GetU32(b, file.end) == 0xdcfeab02) {
    const size_t at = file.end;
    const std::uint32_t length = GetU32(b, at + 12);
    if (at + 24 + length > b.size()) break;
    file.packets.push_back({static_cast<std::uint32_t>(at), GetU32(b, at + 4), (GetU32(b, at + 16) & 1) != 0,
                            (GetU32(b, at + 16) >> 16) != 0, GetU32(b, at + 20), b.substr(at + 24, length)});
    file.end = at + 24 + length;
  }
  return file;
}

std::vector<std::string> FilesIn(const std::string& directory, const std::string& ending) {
  std::vector<std::string> found;
  if (!Exists(directory)) return found;
  for (const auto& entry : std::filesystem::directory_iterator(directory)) {
    const std::string path = entry.path().string();
    if (path.size() >= ending.size() && path.compare(path.size() - ending.size(), ending.size(), ending) == 0)
      found.push_back(path);
  }
  std::sort(found.begin(), found.end());
  return found;
}

RecordConfig DefaultConfig() {
  RecordConfig config = {};
  config.local_enable = 1;
  config.network_enable = 1;
  return config;
}

bool StartTask(std::unique_ptr<CTaskbase> task) {
  TaskManagerAddTask(task.get());
  const bool started = Clock::Get().StartThread([&] { return task->Start() == 0; });
  if (started)
    static_cast<void>(task.release());  // its thread deletes it
  else
    TaskManagerRemoveTask(task.get());
  return started;
}

bool AwaitTasks(long long limitMs) {
  const auto none = [] {
    for (const int kind : {1, 2, 3, 4, 10, 11, 12, 13}) {
      if (TaskManagerGetTaskCount(kind, -1) != 0) return false;
    }
    return true;
  };
  return Clock::Get().WatchUntil(none, limitMs);
}

}  // namespace fake
