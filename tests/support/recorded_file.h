// Takes a KMV file apart without the library's reader, and runs a task to its end under the fake clock.
#ifndef TESTS_SUPPORT_RECORDED_FILE_H
#define TESTS_SUPPORT_RECORDED_FILE_H

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "record/task.h"
#include "tests/support/task_param.h"

namespace fake {

struct RecordedPacket {
  std::uint32_t offset;
  std::uint32_t timestamp;
  bool key;
  bool audio;
  std::uint32_t sequence;
  std::string payload;
  std::int64_t StreamIndex() const;  // the frame's number, from the payload that fake::Streams made
};

struct RecordedFile {
  std::string path;
  std::string bytes;
  std::vector<RecordedPacket> packets;  // up to the first byte that is no packet
  size_t end;                           // offset behind the last packet
  std::vector<std::int64_t> Indices(bool audio) const;
};

RecordedFile ReadRecordedFile(const std::string& path);
// Full paths of the files of a directory whose names end in `ending`, sorted.
std::vector<std::string> FilesIn(const std::string& directory, const std::string& ending);

RecordConfig DefaultConfig();

// Registers and starts the task; true when its thread runs.
bool StartTask(std::unique_ptr<CTaskbase> task);
// Lets fake time pass until no task is registered.
bool AwaitTasks(long long limitMs);

}  // namespace fake

#endif
