#include "tools/recordctl/record_state.h"

#include <ctime>
#include <filesystem>

#include "base/clock.h"
#include "storage/layout.h"
#include "storage/record_info.h"
#include "tools/recordctl/root.h"

namespace recordctl {
namespace {

long long WallMs(std::uint32_t seconds, std::uint32_t microseconds) {
  return seconds * 1000LL + microseconds / 1000;
}

}  // namespace

const char* EndingName(Ending ending) {
  switch (ending) {
    case Ending::kComplete:
      return "complete";
    case Ending::kRecording:
      return "recording";
    default:
      return "interrupted";
  }
}

record::LockState LockOf(const std::string& recordFile) {
  const std::string lockFile = LockFileOf(recordFile);
  return lockFile.empty() ? record::LockState::None : record::GetLockState(lockFile);
}

bool IsBeingRecorded(const std::string& recordFile) {
  return LockOf(recordFile) == record::LockState::Held || record::HasWriter(recordFile);
}

SideFile ReadSideFile(const std::string& recordFile) {
  SideFile side;
  const int size = record::ReadRecordInfo(record::InfoPath(recordFile), side.info);
  if (size < 0) return side;
  side.state = size == static_cast<int>(sizeof side.info) ? SideFile::kRead : SideFile::kWrongSize;
  if (side.state != SideFile::kRead) side.info = {};
  return side;
}

Ending EndingOf(const std::string& recordFile) {
  const record::LockState lock = LockOf(recordFile);
  if (lock == record::LockState::Held || record::HasWriter(recordFile)) return Ending::kRecording;
  if (lock == record::LockState::Stale) return Ending::kInterrupted;
  RecordFile file = {recordFile, Container::kKmv};
  return RecognizeContainer(recordFile, file.container) && HasEnd(file) ? Ending::kComplete : Ending::kInterrupted;
}

long long StartMs(const RecordInfoStruct& info) {
  return WallMs(info.startSeconds, info.startMicroseconds);
}

long long EndMs(const RecordInfoStruct& info) {
  return WallMs(info.endSeconds, info.endMicroseconds);
}

long long LastFrameMs(const Contents& contents, long long startMs) {
  const record::FrameTotals& totals = contents.totals;
  if (totals.videoFrames + totals.audioFrames == 0) return startMs;
  if (!contents.hasWallStamps) return startMs + totals.duration;
  // Except in a time lapse.
  const std::uint32_t last = totals.firstStamp + totals.duration;
  const long long behind = static_cast<std::int32_t>(last - static_cast<std::uint32_t>(startMs));
  if (behind < 0 || behind > kLongestFileMs) return startMs + totals.duration;
  return startMs + behind;
}

long long NamedStartMs(const std::string& path) {
  const std::filesystem::path file(path);
  const std::string name =
      std::filesystem::absolute(file).parent_path().filename().string() + "/" + file.filename().string();
  const record::NameTime time = record::ParseNameTime(name.c_str());
  if (time.year < 1970 || time.month < 1 || time.day < 1) return -1;
  const long long seconds = record::FromLocalTime(
      record::CalendarTime(time.year, time.month, time.day, time.hour, time.minute, time.second));
  return seconds < 0 ? -1 : seconds * 1000;
}

std::string SideFileComplaint(const std::string& recordFile, const SideFile& side,
                              const record::FrameTotals& totals) {
  if (side.state == SideFile::kMissing) return NamedStartMs(recordFile) < 0 ? "" : "there is no side file";
  if (side.state == SideFile::kWrongSize) return "the side file has not the size of one";
  const RecordInfoStruct& info = side.info;
  if (info.videoFrames != totals.videoFrames || info.audioFrames != totals.audioFrames) {
    return "the side file counts " + std::to_string(info.videoFrames) + " video and " +
           std::to_string(info.audioFrames) + " audio frames, the file holds " +
           std::to_string(totals.videoFrames) + " and " + std::to_string(totals.audioFrames);
  }
  const long long bytes = totals.videoBytes + totals.audioBytes;
  // Not the total: MP4 files count it over their task, AVI files with the padding.
  const std::uint32_t counted = info.videoBytes + info.audioBytes;
  if (counted != static_cast<std::uint32_t>(bytes)) {
    return "the side file counts " + std::to_string(counted) + " bytes, the file holds " + std::to_string(bytes);
  }
  if (EndMs(info) < StartMs(info)) return "the side file's end lies before its start";
  return "";
}

}  // namespace recordctl
