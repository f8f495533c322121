// The MP4 side of looking into files. Nothing is ever written into one that was interrupted: its fragments are
// read as they are. Only one that was finished and then cut off has them uncovered first.
#include "tools/recordctl/contents.h"
#include "tools/recordctl/frame_reader.h"
#include "tools/recordctl/mp4_boxes.h"
#include "tools/recordctl/time_text.h"

namespace recordctl {
namespace {

void Count(CVideoFile& file, Contents& contents) {
  record::FrameTotals& totals = contents.totals;
  FrameReader reader(file);
  for (Frame frame; reader.Next(frame);) {
    const auto stamp = static_cast<std::uint32_t>(frame.timestamp);
    if (totals.videoFrames + totals.audioFrames == 0) totals.firstStamp = stamp;
    const std::uint32_t span = stamp - totals.firstStamp;
    if (span <= 0x7fffffffu && span > totals.duration) totals.duration = span;
    (frame.video ? totals.videoFrames : totals.audioFrames) += 1;
    (frame.video ? totals.videoBytes : totals.audioBytes) += frame.length;
    if (frame.key) ++totals.keyFrames;
  }
}

std::string WhyNot(const Mp4Boxes& boxes) {
  if (boxes.hasMovie) return "";
  const std::string lost = ": it has lost the box that describes it (moov)";
  if (boxes.coveredFragments == 0) return lost;
  return lost + ", but has " + std::to_string(boxes.coveredFragments) +
         " whole fragments: recordctl repair uncovers them";
}

void Judge(const Mp4Boxes& boxes, bool growing, Contents& contents) {
  const bool isOpenEnded = boxes.isFragmented && !boxes.hasFragmentIndex;
  if (isOpenEnded && !growing) contents.inconsistencies.emplace_back("no index: recording did not end properly");
  if (boxes.tornBytes > 0 && !growing)
    contents.inconsistencies.push_back("the last fragment is torn: " + std::to_string(boxes.tornBytes) +
                                       " bytes of it at offset " + std::to_string(boxes.dataEnd));
  if (contents.totals.videoFrames > 0 && contents.totals.keyFrames == 0)
    contents.inconsistencies.emplace_back("there is no key frame");
  const char* absent = growing ? "not yet" : "missing";
  contents.end.lines.emplace_back("index", isOpenEnded ? absent : "present");
  contents.end.fields["index"] = !isOpenEnded;
}

}  // namespace

Contents ReadMp4Contents(const std::string& path, bool growing) {
  Contents contents;
  const Mp4Boxes boxes = ReadMp4Boxes(path);
  contents.error = boxes.error;
  if (!contents.error.empty()) return contents;
  contents.coveredFragments = boxes.coveredFragments;
  contents.fileSize = boxes.fileSize;
  contents.dataEnd = boxes.dataEnd;
  contents.tornBytes = boxes.tornBytes;
  contents.head.lines.emplace_back(
      "layout", "brand " + boxes.brand + ", " +
                    (boxes.isFragmented ? std::to_string(boxes.fragments) + " fragments" : "not fragmented"));
  contents.head.fields = {
      {"brand", boxes.brand}, {"fragmented", boxes.isFragmented}, {"fragments", boxes.fragments}};
  CMp4File file;
  if (boxes.coveredFragments > 0 || file.Open(path.c_str()) < 1) {
    contents.error = path + ": cannot be read as MP4" + WhyNot(boxes);
    return contents;
  }
  file.GetMeidaParam(&contents.streamFlags, &contents.video, &contents.audio);
  Count(file, contents);
  Judge(boxes, growing, contents);
  return contents;
}

bool HasMp4End(const std::string& path) {
  return ReadMp4Boxes(path).HasEnd();
}

Repair DescribeMp4End(const Contents& contents) {
  Repair repair;
  const record::FrameTotals& totals = contents.totals;
  repair.outcome = Repair::kNothingToDo;
  repair.fields = {
      {"packets", totals.videoFrames + totals.audioFrames}, {"cut_bytes", 0}, {"size", contents.fileSize}};
  if (contents.end.fields["index"] == true && contents.tornBytes == 0) return repair;
  repair.text =
      "its fragments survive: " + std::to_string(totals.videoFrames) + " video (" +
      std::to_string(totals.keyFrames) + " key) and " + std::to_string(totals.audioFrames) + " audio frames, " +
      SecondsText(totals.duration) + " s; " + Grouped(static_cast<unsigned long long>(contents.tornBytes)) +
      " bytes behind them are lost. Nothing has to be written; recordctl convert makes a finished file of it";
  return repair;
}

}  // namespace recordctl
