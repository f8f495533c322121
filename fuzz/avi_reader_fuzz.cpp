// Everything that can be asked of an AVI file that anybody may have written.
#include "format/avi/avi_repair.h"
#include "fuzz/reader_run.h"

namespace {

struct Avi {
  using Reader = CAviFile;
  static constexpr auto kHandover = fuzz::Handover::kCallers;
  static constexpr bool kMayGoOn = false;
  static constexpr int kMoves = 2000;

  static bool IsEnd(int length) { return length == -2; }  // -1 is a frame that cannot be read
  static std::size_t MostReads(std::size_t fileSize) { return fileSize; }
  static void Check(CAviFile& reader) {
    fuzz::Require(reader.GetVideoFramerate() > 0 && reader.GetVideoFrameInterval() >= 0);
  }
  static record::FileRepair Repair(const char* path) { return record::RepairAvi(path, false); }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::ReaderRun<Avi> run(data, size);
  run.ReadWhole();
  run.ReadRepaired();
  return 0;
}
