#include "tools/recordctl/contents.h"

#include "tools/recordctl/progress.h"

namespace recordctl {

Contents ReadContents(const RecordFile& file, bool growing) {
  switch (file.container) {
    case Container::kMp4:
      return ReadMp4Contents(file.path, growing);
    case Container::kAvi:
      return ReadAviContents(file.path, growing);
    default:
      return ReadKmvContents(file.path, growing);
  }
}

Contents ReadContents(const Options& options, const RecordFile& file, bool growing) {
  const Waiting waiting(options, "reading " + file.path, "read");
  return ReadContents(file, growing);
}

bool HasEnd(const RecordFile& file) {
  switch (file.container) {
    case Container::kMp4:
      return HasMp4End(file.path);
    case Container::kAvi:
      return HasAviEnd(file.path);
    default:
      return HasKmvEnd(file.path);
  }
}

Repair RepairEnd(const RecordFile& file, const Contents& contents, bool dryRun) {
  switch (file.container) {
    case Container::kMp4:
      return DescribeMp4End(contents);
    case Container::kAvi:
      return RepairAviEnd(file.path, dryRun);
    default:
      return RepairKmvEnd(file.path, dryRun);
  }
}

Repair EndRepair(const record::FileRepair& made, bool dryRun, const char* end, const char* frames,
                 const char* frame) {
  Repair repair;
  repair.error = made.error;
  repair.fields = {{"packets", made.packets}, {"cut_bytes", 0}, {"size", made.fileSize}};
  if (made.outcome == record::FileRepair::Failed) return repair;
  repair.outcome = made.outcome == record::FileRepair::Done ? Repair::kDone : Repair::kNothingToDo;
  if (repair.outcome == Repair::kNothingToDo) return repair;
  const std::string would = dryRun ? "would be " : "";
  repair.fields["cut_bytes"] = made.cutBytes;
  repair.text = std::string(end) + " " + would + "written behind " +
                Grouped(static_cast<unsigned long long>(made.packets)) + " " + frames + " at " +
                Grouped(static_cast<unsigned long long>(made.dataEnd)) + ", " +
                Grouped(static_cast<unsigned long long>(made.cutBytes)) + " bytes of a torn " + frame + " " +
                would + "given up";
  return repair;
}

}  // namespace recordctl
