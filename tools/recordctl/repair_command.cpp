// recordctl repair
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>

#include "storage/layout.h"
#include "storage/record_info.h"
#include "tools/recordctl/contents.h"
#include "tools/recordctl/mp4_boxes.h"
#include "tools/recordctl/options.h"
#include "tools/recordctl/output.h"
#include "tools/recordctl/progress.h"
#include "tools/recordctl/record_state.h"
#include "tools/recordctl/root.h"

namespace recordctl {
namespace {

constexpr char kRepairFooter[] =
    "Examples:\n"
    "  recordctl repair FILE --dry-run\n"
    "  recordctl repair FILE\n"
    "\n"
    "Gives a KMV or AVI file that lost its end a new one behind its last whole frame, tells what survives of an\n"
    "MP4 file (and uncovers its fragments when it was finished and then cut off), makes the side file anew and\n"
    "removes the lock file that was left over. What needs nothing is not touched.";

struct RepairRequest {
  std::string file;
  bool dryRun = false;
};

// What has to be done, and with what.
struct Plan {
  RecordFile file;
  Contents contents;
  Repair end;
  long long uncovered = 0;  // fragments
  bool sideFile = false;
  bool lockFile = false;

  bool WritesEnd() const { return end.outcome == Repair::kDone || uncovered > 0; }
  bool IsEmpty() const { return !WritesEnd() && !sideFile && !lockFile; }
};

// An old side file knows the start to the microsecond; without one the name tells it to the second.
bool SetStart(const SideFile& side, const std::string& path, RecordInfoStruct& info) {
  if (side.state == SideFile::kRead && side.info.startSeconds != 0) {
    info.startSeconds = side.info.startSeconds;
    info.startMicroseconds = side.info.startMicroseconds;
    return true;
  }
  const long long startMs = NamedStartMs(path);
  info.startSeconds = static_cast<std::uint32_t>(std::max(startMs, 0LL) / 1000);
  return startMs >= 0;
}

bool WriteSideFile(const Plan& plan) {
  const record::FrameTotals& totals = plan.contents.totals;
  const VIDEO_PARAM& video = plan.contents.video;
  const std::string& path = plan.file.path;
  RecordInfoStruct info = {};
  if (!SetStart(ReadSideFile(path), path, info)) return false;
  info.volLength = static_cast<std::int32_t>(std::min<std::size_t>(video.config_length, sizeof info.volData));
  std::memcpy(info.volData, video.config, static_cast<std::size_t>(info.volLength));
  const long long endMs = LastFrameMs(plan.contents, StartMs(info));
  info.endSeconds = static_cast<std::uint32_t>(endMs / 1000);
  info.endMicroseconds = static_cast<std::uint32_t>(endMs % 1000 * 1000);
  info.nTimeSeconds = record::RecordInfoSeconds(info);
  info.keyFrames = static_cast<std::int32_t>(totals.keyFrames);
  info.videoFrames = static_cast<std::int32_t>(totals.videoFrames);
  info.audioFrames = static_cast<std::int32_t>(totals.audioFrames);
  info.videoBytes = static_cast<std::uint32_t>(totals.videoBytes);
  info.audioBytes = static_cast<std::uint32_t>(totals.audioBytes);
  info.totalBytes = static_cast<std::uint32_t>(totals.videoBytes + totals.audioBytes);
  return record::WriteRecordInfo(record::InfoPath(path), info) == static_cast<int>(sizeof info);
}

void PrintJson(const Plan& plan, bool dryRun) {
  Json json = {{"path", plan.file.path},
               {"dry_run", dryRun},
               {"needed", !plan.IsEmpty()},
               {"end_written", plan.WritesEnd()}};
  json.update(plan.end.fields);
  json["side_file_written"] = plan.sideFile;
  json["lock_file_removed"] = plan.lockFile;
  WriteJson(json);
}

void PrintText(const Plan& plan, bool dryRun) {
  const std::string path = Printable(plan.file.path);
  const char* would = dryRun ? "would be " : "";
  if (plan.IsEmpty() && plan.end.text.empty()) WriteText("%s: needs nothing\n", path.c_str());
  if (plan.uncovered > 0)
    WriteText("%s: %lld fragments %suncovered, which lay below its lost end\n", path.c_str(), plan.uncovered,
              would);
  if (!plan.end.text.empty()) WriteText("%s: %s\n", path.c_str(), plan.end.text.c_str());
  if (plan.sideFile) WriteText("%s: side file %swritten\n", path.c_str(), would);
  if (plan.lockFile) WriteText("%s: lock file %sremoved\n", path.c_str(), would);
}

void Print(const Options& options, const Plan& plan, bool dryRun) {
  if (options.json)
    PrintJson(plan, dryRun);
  else
    PrintText(plan, dryRun);
}

Repair RepairFile(const Options& options, const Plan& plan, bool dryRun) {
  const Waiting waiting(options, "repairing " + plan.file.path, "repair");
  return RepairEnd(plan.file, plan.contents, dryRun);
}

// The lock goes last: whatever fails before it, the file still shows as interrupted.
int CarryOut(const Options& options, Plan& plan) {
  const std::string& path = plan.file.path;
  plan.end = RepairFile(options, plan, false);
  if (plan.end.outcome == Repair::kFailed) return Fail(plan.end.error);
  if (plan.sideFile && !WriteSideFile(plan)) return Fail("cannot write " + record::InfoPath(path));
  const std::string lockFile = LockFileOf(path);
  if (plan.lockFile && unlink(lockFile.c_str()) != 0)
    return Fail("cannot remove " + lockFile + ": " + std::strerror(errno));
  return kOk;
}

// A finished MP4 file that was cut off shows nothing of what it holds before its fragments are uncovered. False
// with `code` when there is no more to do.
bool Uncover(const Options& options, bool dryRun, Plan& plan, int& code) {
  const std::string& path = plan.file.path;
  plan.uncovered = plan.contents.coveredFragments;
  if (plan.uncovered == 0) return true;
  if (dryRun) {
    plan.end.outcome = Repair::kNothingToDo;
    plan.lockFile = LockOf(path) == record::LockState::Stale;
    Print(options, plan, true);
    code = kOk;
    return false;
  }
  const std::string error = UncoverFragments(path);
  if (!error.empty()) {
    code = Fail(error);
    return false;
  }
  plan.contents = ReadContents(options, plan.file, false);
  return true;
}

int RepairCommand(const Options& options, const RepairRequest& request) {
  Plan plan;
  if (!FindRecordFile(options, request.file, plan.file)) return kFailed;
  const std::string& path = plan.file.path;
  if (IsBeingRecorded(path)) return Fail(request.file + ": is being recorded");
  plan.contents = ReadContents(options, plan.file, false);
  int code = kOk;
  if (!Uncover(options, request.dryRun, plan, code)) return code;
  if (!plan.contents.error.empty()) return Fail(plan.contents.error);
  plan.end = RepairFile(options, plan, true);
  if (plan.end.outcome == Repair::kFailed) return Fail(plan.end.error);
  plan.sideFile = !SideFileComplaint(path, ReadSideFile(path), plan.contents.totals).empty();
  plan.lockFile = LockOf(path) == record::LockState::Stale;
  if (!request.dryRun && !plan.IsEmpty()) {
    code = CarryOut(options, plan);
    if (code != kOk) return code;
  }
  Print(options, plan, request.dryRun);
  return kOk;
}

}  // namespace

void AddRepairCommand(CLI::App& app, const Options& options, Action& action) {
  const auto request = std::make_shared<RepairRequest>();
  CLI::App* command = app.add_subcommand("repair", "Give a record file that lost its end a new one, in place");
  command->footer(kRepairFooter);
  command->add_option("FILE", request->file, "A record file")->required();
  command->add_flag("--dry-run", request->dryRun, "Only tell what would be done");
  command->callback(
      [&options, &action, request] { action = [&options, request] { return RepairCommand(options, *request); }; });
}

}  // namespace recordctl
