#include "format/avi/avi_repair.h"

#include <cerrno>
#include <cstring>
#include <memory>
#include <new>

#include "format/avi/avi_index_list.h"
#include "format/avi/avi_scan.h"
#include "format/file_limits.h"
#include "format/repair_file.h"

namespace record {
namespace {

// False when the index cannot hold them all.
bool ListFrames(FileSource& source, const AviHead& head, AviIndexList& index) {
  AviScanner scanner(source, head, source.Size());
  AviChunk chunk;
  while (scanner.Next(chunk)) {
    if (!index.Add(chunk.entry)) return false;
  }
  return true;
}

// An index that was written before its recording stopped knows better which frames are key frames.
void KeepWrittenIndex(const FileSource& source, long long offset, AviIndexList& index) {
  AviIndexReader written(source);
  if (written.Open(offset) != AviIndexState::Whole || written.Count() != index.Count()) return;
  AviIndexList kept;
  AviIndexEntry entry;
  while (written.Next(entry)) {
    if (!AviIsFrame(entry.id) || !kept.Add(entry)) return;
  }
  if (kept.Count() == 0 || kept.Count() != index.Count()) return;
  const AviIndexEntry& last = kept.Last();
  if (last.offset == index.Last().offset && last.size == index.Last().size) index = std::move(kept);
}

// Behind the last frame: padding, index, and the end of the file.
bool WriteIndex(RepairFile& file, const AviReport& report, const AviIndexList& index, long long fileSize) {
  std::uint8_t padding[kAviPaddedTo];
  std::memset(padding, kAviPadding, sizeof padding);
  const long long chunkBytes = report.dataEnd - report.head.FirstChunk();
  const auto padded = static_cast<std::size_t>(AviPadded(chunkBytes) - chunkBytes);
  AviChunkHead head = {kAviIndexId, static_cast<std::uint32_t>(index.Bytes())};
  std::vector<struct iovec> parts = {{padding, padded}, {&head, sizeof head}};
  index.AppendTo(parts);
  long long offset = report.dataEnd;
  for (const struct iovec& part : parts) {
    if (!file.WriteAt(offset, part.iov_base, part.iov_len)) return false;
    offset += static_cast<long long>(part.iov_len);
  }
  return file.SetSize(fileSize) && file.Sync();
}

template <typename Header>
bool WriteHeader(RepairFile& file, const FileSource& source, const AviReport& report, long long entries) {
  const std::unique_ptr<Header> header(new (std::nothrow) Header);
  if (!header || source.ReadAt(0, header.get(), sizeof(Header)) != sizeof(Header)) return false;
  AviSetSizes(header->begin, header->end, report.dataEnd - report.head.FirstChunk(), entries,
              static_cast<std::uint32_t>(report.totals.videoFrames));
  return file.WriteAt(0, header.get(), sizeof(Header)) && file.Sync();
}

FileRepair Write(FileRepair repair, const char* path, const FileSource& source, const AviReport& report,
                 const AviIndexList& index) {
  RepairFile file;
  std::string reason = file.Open(path, report.fileSize);
  if (!reason.empty()) return FailRepair(repair, path, reason);
  // The index reaches the medium before the header that vouches for it.
  bool written = WriteIndex(file, report, index, repair.fileSize);
  if (written && report.head.HasAudio())
    written = WriteHeader<AVI_FILE_HEADER_AV>(file, source, report, index.Count());
  else if (written)
    written = WriteHeader<AVI_FILE_HEADER_VIDEO>(file, source, report, index.Count());
  reason = file.Close();
  if (!written && reason.empty()) reason = "its header cannot be read";
  if (!reason.empty()) return FailRepair(repair, path, reason);
  repair.outcome = FileRepair::Done;
  return repair;
}

}  // namespace

FileRepair RepairAvi(const char* path, bool dryRun) {
  FileRepair repair;
  const AviReport report = InspectAvi(path);
  if (!report.error.empty()) {
    repair.error = report.error;
    return repair;
  }
  repair.packets = report.totals.videoFrames + report.totals.audioFrames;
  repair.dataEnd = report.dataEnd;
  repair.fileSize = report.fileSize;
  if (report.HasIndex()) {
    repair.outcome = FileRepair::NothingToDo;
    return repair;
  }
  FileSource source;
  AviIndexList index;
  if (!source.Open(path)) return FailRepair(repair, path, std::strerror(errno));
  if (!ListFrames(source, report.head, index)) return FailRepair(repair, path, "it holds too many frames");
  const bool audio = report.head.HasAudio();
  const long long chunkBytes = report.dataEnd - report.head.FirstChunk();
  KeepWrittenIndex(source, report.head.FirstChunk() + AviPadded(chunkBytes), index);
  repair.cutBytes = report.fileSize - report.dataEnd;
  repair.fileSize = AviFinishedSize(audio, chunkBytes, index.Count());
  if (repair.fileSize > kLongestRecordFile)
    return FailRepair(repair, path, "its frames leave no room for an index");
  if (!dryRun) return Write(repair, path, source, report, index);
  repair.outcome = FileRepair::Done;
  return repair;
}

}  // namespace record
