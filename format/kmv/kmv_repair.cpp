#include "format/kmv/kmv_repair.h"

#include <cerrno>
#include <cstring>

#include "format/measured_rate.h"
#include "format/repair_file.h"

namespace record {
namespace {

// The index reaches the medium before the tail that vouches for it, and the file ends with the tail only after
// both are there: cut off anywhere, it still has no end.
bool WriteEnd(RepairFile& file, const KmvEnd& end) {
  const long long indexOffset = end.tail.indexOffset;
  const long long size = KmvFinishedSize(indexOffset);
  return file.WriteAt(indexOffset, &end.index, sizeof(end.index)) && file.Sync() &&
         file.WriteAt(KmvTailOffset(size), &end.tail, sizeof(end.tail)) && file.Sync() && file.SetSize(size) &&
         file.Sync();
}

KmvEnd MakeEnd(const KmvReport& report) {
  const KmvTotals& totals = report.totals;
  KmvEnd end = {};
  end.index = totals.index;
  end.index.magic = KMV_INDEX_MAGIC;
  end.index.indexSize = kKmvIndexSize;
  end.tail.magic = KMV_TAIL_MAGIC;
  end.tail.duration = totals.duration;
  end.tail.indexOffset = static_cast<std::uint32_t>(report.dataEnd);
  end.tail.videoFrames = static_cast<std::uint32_t>(totals.videoFrames);
  end.tail.audioFrames = static_cast<std::uint32_t>(totals.audioFrames);
  end.tail.keyFrames = static_cast<std::uint32_t>(totals.keyFrames);
  end.tail.media = report.head.media;
  KmvVideoFields& video = end.tail.media.video;
  KmvAudioFields& audio = end.tail.media.audio;
  video.framerate = static_cast<std::uint32_t>(
      MeasuredVideoRate(totals.videoFrames, totals.duration, static_cast<int>(video.framerate)));
  audio.framerate = static_cast<std::uint32_t>(
      MeasuredAudioRate(totals.audioFrames, totals.duration, static_cast<int>(audio.framerate)));
  return end;
}

// A file that was finished and then got something behind its end keeps the end that it has.
bool ReadEndInside(const FileSource& source, long long dataEnd, KmvEnd& end) {
  return KmvFinishedSize(dataEnd) <= source.Size() &&
         KmvReadEnd(source, KmvFinishedSize(dataEnd), end) == KmvEndState::Whole &&
         end.tail.indexOffset == dataEnd;
}

FileRepair Write(FileRepair repair, const char* path, long long sizeBefore, const KmvEnd& end) {
  RepairFile file;
  std::string reason = file.Open(path, sizeBefore);
  if (!reason.empty()) return FailRepair(repair, path, reason);
  WriteEnd(file, end);
  reason = file.Close();
  if (!reason.empty()) return FailRepair(repair, path, reason);
  repair.outcome = FileRepair::Done;
  return repair;
}

}  // namespace

FileRepair RepairKmv(const char* path, bool dryRun) {
  FileRepair repair;
  const KmvReport report = InspectKmv(path);
  if (!report.error.empty()) {
    repair.error = report.error;
    return repair;
  }
  repair.packets = report.totals.videoFrames + report.totals.audioFrames;
  repair.fileSize = report.fileSize;
  if (report.endState == KmvEndState::Whole) {
    repair.dataEnd = report.end.tail.indexOffset;
    repair.outcome = FileRepair::NothingToDo;
    return repair;
  }
  repair.dataEnd = report.dataEnd;
  repair.cutBytes = report.fileSize - report.dataEnd;
  repair.fileSize = KmvFinishedSize(report.dataEnd);
  if (repair.fileSize > kLongestRecordFile)
    return FailRepair(repair, path, "its packets leave no room for index and tail");

  FileSource source;
  KmvEnd end;
  if (!source.Open(path)) return FailRepair(repair, path, std::strerror(errno));
  if (!ReadEndInside(source, report.dataEnd, end)) end = MakeEnd(report);
  source.Close();
  if (!dryRun) return Write(repair, path, report.fileSize, end);
  repair.outcome = FileRepair::Done;
  return repair;
}

}  // namespace record
