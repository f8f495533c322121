// Record files for the benchmark, written by the library's tasks driven by hand.
#ifndef BENCH_RECORDING_H
#define BENCH_RECORDING_H

#include <memory>
#include <string>

#include "bench/clip.h"
#include "record/task.h"

namespace bench {

enum class Container { kKmv, kAvi, kMp4 };
constexpr Container kContainers[] = {Container::kKmv, Container::kAvi, Container::kMp4};
const char* NameOf(Container container);       // "KMV"
const char* ExtensionOf(Container container);  // ".kmv"

RECORD_TASK_PARAM RecordingParam(int kind);

// A record task without its thread. Ends the program when the task refuses.
class Recording {
 public:
  // REQUIRES: `directory` exists, Place::BecomeDevice was called.
  static std::unique_ptr<Recording> Make(Container container, const std::string& directory);
  virtual ~Recording() = default;

  virtual void Begin() = 0;
  virtual void Write(const Frame& frame) = 0;
  virtual void End() = 0;
  virtual std::string Path() const = 0;
};

// A file whose times are those of its frames, however fast it is made. Without `finished` it ends behind what the
// task had written before its end, as after a power cut.
void MakeRecordFile(Container container, const std::string& path, const Clip& clip, bool finished);

// The same with its side files, begun at a second of a day (UTC, since 1970), in a directory YYYYMMDD; its path.
std::string RecordAt(Container container, const std::string& dayDirectory, long long startSeconds,
                     const Clip& clip);

}  // namespace bench

#endif
