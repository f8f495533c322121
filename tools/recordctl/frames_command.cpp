// recordctl frames
#include <memory>

#include "tools/recordctl/frame_reader.h"
#include "tools/recordctl/options.h"
#include "tools/recordctl/output.h"
#include "tools/recordctl/progress.h"
#include "tools/recordctl/record_file.h"

namespace recordctl {
namespace {

constexpr char kFramesFooter[] =
    "Examples:\n"
    "  recordctl frames FILE\n"
    "  recordctl --json frames FILE\n"
    "  recordctl frames FILE --raw video | ffprobe -\n"
    "\n"
    "A line holds number, medium, key or -, time stamp in milliseconds and bytes.";

bool PrintFrame(const Frame& frame, bool json) {
  const char* media = frame.video ? "video" : "audio";
  if (json)  // by hand: millions of lines, and nothing in them needs quoting
    return WriteText("{\"n\":%lld,\"media\":\"%s\",\"key\":%s,\"ts_ms\":%lu,\"bytes\":%ld}\n", frame.number, media,
                     frame.key ? "true" : "false", frame.timestamp, frame.length);
  return WriteText("%8lld  %s  %s  %10lu  %8ld\n", frame.number, media, frame.key ? "key" : "-  ", frame.timestamp,
                   frame.length);
}

struct FramesRequest {
  std::string file;
  std::string raw;  // "", "video" or "audio"
};

// False when the reader of the output is gone.
bool Put(const Frame& frame, const Options& options, const FramesRequest& request) {
  if (request.raw.empty()) return PrintFrame(frame, options.json);
  if (frame.video != (request.raw == "video")) return true;
  return Write(frame.data, static_cast<std::size_t>(frame.length));
}

int Frames(const Options& options, const FramesRequest& request) {
  if (options.json && !request.raw.empty()) {
    Say("--raw writes the stream itself: --json does not go with it");
    return kUsage;
  }
  RecordFile file;
  if (!FindRecordFile(options, request.file, file)) return kFailed;
  const std::unique_ptr<CVideoFile> opened = OpenRecord(file, request.file);
  if (opened == nullptr) return kFailed;
  FrameReader reader(*opened);
  Progress progress(ChosenProgress(options));
  Frame frame;
  while (reader.Next(frame) && Put(frame, options, request)) {
    if (!progress.IsDue()) continue;
    const std::string frames = std::to_string(frame.number + 1);
    progress.Show(frames + " frames", {{"phase", "frames"}, {"frames", frames}});
  }
  return kOk;
}

}  // namespace

void AddFramesCommand(CLI::App& app, const Options& options, Action& action) {
  const auto request = std::make_shared<FramesRequest>();
  CLI::App* command =
      app.add_subcommand("frames", "List the frames of a record file, or write one of its streams");
  command->footer(kFramesFooter);
  command->add_option("FILE", request->file, "A record file")->required();
  command->add_option("--raw", request->raw, "Write the elementary stream: video or audio")
      ->check(CLI::IsMember({"video", "audio"}));
  command->callback(
      [&options, &action, request] { action = [&options, request] { return Frames(options, *request); }; });
}

}  // namespace recordctl
