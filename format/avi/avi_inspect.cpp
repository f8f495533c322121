#include <cerrno>
#include <cstring>

#include "format/avi/avi_repair.h"
#include "format/avi/avi_scan.h"
#include "format/complaints.h"

namespace record {
namespace {

class AviInspection {
 public:
  AviInspection(FileSource& source, bool growing, AviReport& report)
      : m_source(source),
        m_growing(growing),
        m_report(report),
        m_index(source),
        m_complaints(report.inconsistencies) {}

  void Run() {
    ReadIndex();
    ReadChunks();
    CheckDataEnd();
    if (IsFinished()) CheckHead();
    m_complaints.Finish();
  }

 private:
  bool IsFinished() const { return m_report.indexState == AviIndexState::Whole; }
  void ReadIndex();
  void ReadChunks();
  void Compare(AviChunk& chunk);
  void NextEntry() { m_hasEntry = IsFinished() && m_index.Next(m_entry); }
  void CheckDataEnd();
  void CheckHead();

  FileSource& m_source;
  const bool m_growing;
  AviReport& m_report;
  AviIndexReader m_index;
  AviIndexEntry m_entry = {};  // the one that is due
  bool m_hasEntry = false;
  Complaints m_complaints;
};

void AviInspection::ReadIndex() {
  AviReport& report = m_report;
  if (report.EndedWithoutFrames()) return;
  report.indexState = m_index.Open(report.head.IndexOffset());
  if (IsFinished()) {
    report.indexEntries = m_index.Count();
  } else if (report.head.movi.size != 0) {
    m_complaints.Add("no whole index at offset %lld, where the header says it is", report.head.IndexOffset());
  } else if (!m_growing) {
    m_complaints.Add("no index: recording did not end properly");
  }
}

void AviInspection::ReadChunks() {
  AviReport& report = m_report;
  AviScanner scanner(m_source, report.head, IsFinished() ? report.head.IndexOffset() : report.fileSize);
  AviChunk chunk;
  NextEntry();
  while (scanner.Next(chunk)) {
    if (chunk.damageFrom >= 0)
      m_complaints.Add("damaged from offset %lld to %lld", chunk.damageFrom, chunk.offset);
    if (IsFinished()) Compare(chunk);
    AviCount(report.totals, chunk.entry);
  }
  for (; m_hasEntry; NextEntry()) {
    m_complaints.Add("the index names a frame at offset %lld, where none stands",
                     report.head.ListStart() + m_entry.offset);
  }
  report.dataEnd = scanner.DataEnd();
  if (!IsFinished() && scanner.IsTorn()) report.tornBytes = report.fileSize - report.dataEnd;
  report.totals.hasStamps = false;
  report.totals.duration = AviDuration(report.totals, report.head.video.rate);
}

// Both go by offset, so that one frame too many or too few is told as one.
void AviInspection::Compare(AviChunk& chunk) {
  while (m_hasEntry && m_entry.offset < chunk.entry.offset) {
    m_complaints.Add("the index names a frame at offset %lld, where none stands",
                     m_report.head.ListStart() + m_entry.offset);
    NextEntry();
  }
  if (!m_hasEntry || m_entry.offset != chunk.entry.offset) {
    m_complaints.Add("the frame at offset %lld is not in the index", chunk.offset);
    return;
  }
  if (m_entry.id != chunk.entry.id || m_entry.size != chunk.entry.size)
    m_complaints.Add("the frame at offset %lld is not what the index says", chunk.offset);
  chunk.entry.flags = m_entry.flags;
  NextEntry();
}

void AviInspection::CheckDataEnd() {
  const AviReport& report = m_report;
  const long long end = IsFinished() ? report.head.IndexOffset() : report.fileSize;
  const long long behind = end - report.dataEnd;
  if (report.tornBytes > 0) {
    if (!m_growing)
      m_complaints.Add("the last frame is torn: %lld bytes of it at offset %lld", report.tornBytes,
                       report.dataEnd);
  } else if (behind >= kAviPaddedTo && !m_growing) {
    m_complaints.Add("%lld bytes behind the last whole frame at offset %lld are no frame", behind, report.dataEnd);
  }
}

void AviInspection::CheckHead() {
  const AviReport& report = m_report;
  const long long end = m_index.End();
  if (report.head.begin.riff.size + kAviChunkHeadSize != end)
    m_complaints.Add("the header gives the file %lld bytes, it has %lld",
                     report.head.begin.riff.size + kAviChunkHeadSize, end);
  if (end < report.fileSize) m_complaints.Add("%lld bytes behind the index", report.fileSize - end);
  if (report.head.begin.main.totalFrames != report.totals.videoFrames)
    m_complaints.Add("the header counts %u video frames, the file holds %lld", report.head.begin.main.totalFrames,
                     report.totals.videoFrames);
}

}  // namespace

bool AviReport::HasIndex() const {
  if (EndedWithoutFrames()) return true;
  return indexState == AviIndexState::Whole && (indexEntries > 0 || totals.videoFrames + totals.audioFrames == 0);
}

AviReport InspectAvi(const char* path, bool growing) {
  AviReport report;
  FileSource source;
  if (!source.Open(path)) {
    report.error = std::string("cannot open ") + path + ": " + std::strerror(errno);
    return report;
  }
  report.fileSize = source.Size();
  if (AviReadHead(source, report.head) != AviHeadState::Read || !report.head.IsRecorded()) {
    report.error = std::string(path) + " is not an AVI file as they are recorded";
    return report;
  }
  AviInspection(source, growing, report).Run();
  return report;
}

}  // namespace record
