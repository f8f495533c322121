// A record file that anybody may have written, through both exports. It lies there twice, a second apart, so that
// one is joined to the other.
#include <cstdint>
#include <future>
#include <string>
#include <utility>

#include "fuzz/fuzz_device.h"
#include "record/export.h"
#include "tests/support/fake_mp4.h"

namespace {

using fuzz::Require;

const char* const kExtensions[] = {".kmv", ".avi", ".mp4"};
std::promise<int>* g_result = nullptr;

int Done(int, int result) {
  g_result->set_value(result);
  return 0;
}

template <typename Export>
void Run(Export& job) {
  std::promise<int> result;
  g_result = &result;
  Require(job.Start() == 0);
  Require(result.get_future().get() == 0);
  job.Stop();
}

void RequireTimesToGoUp(const std::string& path) {
  unsigned last[2] = {0, 0};
  bool isFirst = true;
  for (const fake::Mp4Frame& frame : fake::ReadMp4(path).frames) {
    Require(!isFirst || (frame.video && frame.key && frame.timestampMs == 0));
    Require(frame.timestampMs >= last[frame.video]);
    last[frame.video] = frame.timestampMs;
    isFirst = false;
  }
}

}  // namespace

// The first byte chooses the container.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const fuzz::Device s_device;
  if (size == 0) return 0;
  fake::Platform::Get().ClearRecord();
  fake::Platform::Get().records.clear();
  const std::string extension = kExtensions[data[0] % 3];
  const std::string bytes(reinterpret_cast<const char*>(data) + 1, size - 1);
  s_device.AddRecord("20240130/080000-av-1" + extension, bytes, 1706600000, 300);
  s_device.AddRecord("20240130/080001-av-1" + extension, bytes, 1706600000, 300);
  const std::string output = s_device.Path("/tmp/out.mp4");
  {
    CExportRecord job(
        1, 2024, 1, 30,
        {8, 0, data[0] < 128 ? static_cast<unsigned char>(0) : static_cast<unsigned char>(1), 8, 5, 0}, output,
        Done);
    Run(job);
  }
  RequireTimesToGoUp(output);
  // Pictures of 480 ms each are stepped to, those of 14.4 s sought.
  for (const auto& [name, seconds] : {std::pair{"/tmp/out.mp4", 300}, std::pair{"/tmp/out.dat", 10}}) {
    CExportTimelapse job(2, seconds, 2024, 1, 30, {8, 0, 0, 9, 0, 0}, s_device.Path(name), Done);
    Run(job);
  }
  std::filesystem::remove(output);
  s_device.AwaitThreads();
  return 0;
}
