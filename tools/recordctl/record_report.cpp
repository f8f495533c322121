#include "tools/recordctl/record_report.h"

#include "tools/recordctl/output.h"
#include "tools/recordctl/record_state.h"
#include "tools/recordctl/root.h"
#include "tools/recordctl/time_text.h"

namespace recordctl {
namespace {

// From the first to the last picture: with what was recorded before the begin.
long long PictureSpanMs(const TaskWatch& watch) {
  return watch.videoFrames > 0 ? static_cast<std::uint32_t>(watch.lastVideoStamp - watch.firstVideoStamp) : 0;
}

// The task counts what it was given; after a failed write the file holds less.
void CountFrames(const std::string& path, RecordInfoStruct& info) {
  RecordFile file = {path, Container::kKmv};
  if (!RecognizeContainer(path, file.container)) return;
  const record::FrameTotals totals = ReadContents(file, true).totals;
  info.videoFrames = static_cast<std::int32_t>(totals.videoFrames);
  info.keyFrames = static_cast<std::int32_t>(totals.keyFrames);
  info.audioFrames = static_cast<std::int32_t>(totals.audioFrames);
  info.totalBytes = static_cast<std::uint32_t>(totals.videoBytes + totals.audioBytes);
}

}  // namespace

void ShowRecording(Progress& progress, const TaskWatch& watch, const std::string& path, long long elapsedMs,
                   int durationSeconds) {
  const std::string name = path.substr(path.rfind('/') + 1);
  const std::string of = durationSeconds > 0 ? " of " + std::to_string(durationSeconds) : "";
  const std::string frames = std::to_string(watch.videoFrames) + " video, " + std::to_string(watch.audioFrames) +
                             " audio frames, " + Grouped(static_cast<unsigned long long>(watch.bytes)) + " bytes";
  progress.Show("recording " + std::to_string(elapsedMs / 1000) + of + " s: " + name + ", " + frames,
                {{"phase", "recording"},
                 {"elapsed", SecondsText(elapsedMs)},
                 {"file", name},
                 {"video_frames", std::to_string(watch.videoFrames)},
                 {"audio_frames", std::to_string(watch.audioFrames)},
                 {"bytes", std::to_string(watch.bytes)}});
}

void PrintFinishedFile(const Options& options, const TaskWatch& watch, const TaskWatch::File& file) {
  RecordInfoStruct info = file.info;
  if (file.writeFailed) CountFrames(file.path, info);
  const std::string path = ShownFile(options, file.path);
  const long long span = PictureSpanMs(watch);
  if (options.json) {
    WriteJson({{"path", path},
               {"start", IsoTime(StartMs(info))},
               {"end", IsoTime(EndMs(info))},
               {"span_ms", span},
               {"video_frames", info.videoFrames},
               {"key_frames", info.keyFrames},
               {"audio_frames", info.audioFrames},
               {"bytes", info.totalBytes},
               {"write_failed", file.writeFailed}});
  } else {
    WriteText("%s  %d video (%d key) and %d audio frames, %s bytes, %s s\n", Printable(path).c_str(),
              info.videoFrames, info.keyFrames, info.audioFrames, Grouped(info.totalBytes).c_str(),
              SecondsText(span).c_str());
  }
  FlushOutput();
}

}  // namespace recordctl
