// Everything that can be asked of a KMV file that anybody may have written.
#include "format/kmv/kmv_repair.h"
#include "fuzz/reader_run.h"

namespace {

struct Kmv {
  using Reader = CKmvFile;
  static constexpr auto kHandover = fuzz::Handover::kCallers;
  static constexpr bool kMayGoOn = false;
  static constexpr int kMoves = 2000;

  static bool IsEnd(int length) { return length < 0; }
  static std::size_t MostReads(std::size_t fileSize) { return fileSize / 24; }  // a packet's head
  static void Check(CKmvFile& reader) { fuzz::Require(reader.GetVideoFrameCount() < 1800); }
  static record::FileRepair Repair(const char* path) { return record::RepairKmv(path, false); }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::ReaderRun<Kmv> run(data, size);
  run.ReadWhole();
  record::InspectKmv(run.Path());
  run.ReadRepaired();
  return 0;
}
