// The AVI side of looking into files and repairing them.
#include "format/avi/avi_params.h"
#include "format/avi/avi_repair.h"
#include "format/avi/avi_scan.h"
#include "tools/recordctl/contents.h"

namespace recordctl {
namespace {

using record::AviIndexState;
using record::AviReport;

void TakeMedia(const std::string& path, const AviReport& report, Contents& contents) {
  contents.streamFlags = RECORD_STREAM_VIDEO | (report.head.HasAudio() ? RECORD_STREAM_AUDIO : 0u);
  contents.video = record::AviVideoParam(report.head);
  if (report.head.HasAudio()) contents.audio = record::AviAudioParam(report.head);
  // The configuration stands in the first key frame; the reader knows which that is.
  CAviFile reader;
  unsigned long flags = 0;
  if (reader.Open(path.c_str()) > 0) reader.GetMeidaParam(&flags, &contents.video, nullptr);
}

Notes HeadNotes(const AviReport& report) {
  const AVI_MAIN_HEADER& main = report.head.begin.main;
  Notes notes;
  notes.lines.emplace_back("head", std::to_string(main.streams) +
                                       (main.streams == 1 ? " stream, " : " streams, ") +
                                       std::to_string(main.totalFrames) + " video frames");
  notes.fields = {{"streams", main.streams}, {"head_video_frames", main.totalFrames}};
  return notes;
}

Notes EndNotes(const AviReport& report, bool growing) {
  const bool whole = report.indexState == AviIndexState::Whole;
  Notes notes;
  notes.fields["index"] = whole;
  if (!whole) {
    const char* const absent = report.EndedWithoutFrames() ? "none, there are no frames" : "missing";
    notes.lines.emplace_back("index", growing ? "not yet" : absent);
    return notes;
  }
  const long long offset = report.head.IndexOffset();
  notes.lines.emplace_back("index", "at " + Grouped(static_cast<unsigned long long>(offset)) + ", " +
                                        std::to_string(report.indexEntries) + " frames");
  notes.fields["index_offset"] = offset;
  notes.fields["index_entries"] = report.indexEntries;
  return notes;
}

}  // namespace

Contents ReadAviContents(const std::string& path, bool growing) {
  const AviReport report = record::InspectAvi(path.c_str(), growing);
  Contents contents;
  static_cast<record::FileReport&>(contents) = report;
  if (!report.error.empty()) return contents;
  contents.totals = report.totals;
  TakeMedia(path, report, contents);
  contents.head = HeadNotes(report);
  contents.end = EndNotes(report, growing);
  return contents;
}

bool HasAviEnd(const std::string& path) {
  record::FileSource source;
  record::AviHead head;
  if (!source.Open(path.c_str()) || record::AviReadHead(source, head) != record::AviHeadState::Read) return false;
  return head.EndedWithoutFrames(source.Size()) ||
         record::AviIndexReader(source).Open(head.IndexOffset()) == AviIndexState::Whole;
}

Repair RepairAviEnd(const std::string& path, bool dryRun) {
  return EndRepair(record::RepairAvi(path.c_str(), dryRun), dryRun, "index and header sizes", "frames", "frame");
}

}  // namespace recordctl
