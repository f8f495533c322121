// recordctl record
#include <memory>

#include "tools/recordctl/options.h"
#include "tools/recordctl/output.h"
#include "tools/recordctl/record_session.h"

namespace recordctl {
namespace {

constexpr int kLongestDuration = 366 * 86400;
constexpr int kLongestFile = 1800;  // what the index of a file covers
constexpr int kMostFree = 100000000;
constexpr int kLongestPre = 10;  // what the library keeps of the buffer

constexpr char kRecordFooter[] =
    "Examples:\n"
    "  recordctl record --input rtsp://camera/main --sub rtsp://camera/sub --stream sub --kind motion --pre 5 "
    "--duration 60\n"
    "  recordctl record --input clip.mkv --loop --duration 15 --max-file 8 --pre 3\n"
    "  recordctl record --input rtsp://camera/main --min-free 2000\n"
    "  recordctl record --input rtsp://camera/main --ftp ftpes://cam@server/records --ftp-password-file secret\n"
    "\n"
    "Ends with Ctrl-C, after --duration, or when a file has been played. Every finished file is told on stdout.";

int Record(const Options& options, RecordRequest& request) {
  const ContainerName* container = FindContainer(request.containerName);
  if (container == nullptr) {
    Say("there is no container '" + request.containerName + "' (kmv, avi, mp4)");
    return kUsage;
  }
  request.container = container->container;
  request.kind = FindKind(request.kindName);
  if (request.kind == nullptr) {
    Say("there is no kind '" + request.kindName + "' (schedule, manual, motion, alarm)");
    return kUsage;
  }
  request.stream = request.streamName == "sub" ? STREAM_SUB : STREAM_MAIN;
  if (request.stream == STREAM_SUB && request.sub.empty()) {
    Say("--stream sub needs --sub");
    return kUsage;
  }
  return RecordSession(options, request).Run();
}

}  // namespace

void AddRecordCommand(CLI::App& app, const Options& options, Action& action) {
  const auto request = std::make_shared<RecordRequest>();
  CLI::App* command = app.add_subcommand("record", "Record a camera or a file into record files");
  command->footer(kRecordFooter);
  command->add_option("--input", request->input, "Main stream: a URL (rtsp://...) or a file")->required();
  command->add_option("--sub", request->sub, "Sub stream: a URL or a file");
  command->add_flag("--loop", request->loop, "Play files over and over");
  command->add_option("--container", request->containerName, "kmv, avi or mp4")->default_str("kmv");
  command->add_option("--kind", request->kindName, "schedule, manual, motion or alarm")->default_str("manual");
  command->add_option("--duration", request->duration, "Seconds to record (default: until interrupted)")
      ->check(CLI::Range(1, kLongestDuration));
  command
      ->add_option("--max-file", request->maxFile,
                   "Longest file in seconds; schedule and manual files of whole "
                   "minutes are cut on the wall clock")
      ->default_str("600")
      ->check(CLI::Range(1, kLongestFile));
  command->add_option("--pre", request->pre, "Seconds to record from before the begin")
      ->check(CLI::Range(0, kLongestPre));
  command->add_option("--stream", request->streamName, "Stream to record: main or sub")
      ->default_str("main")
      ->check(CLI::IsMember({"main", "sub"}));
  command
      ->add_option(
          "--min-free", request->minFreeMB,
          "Keep so many MB free: the oldest recordings are deleted to make room, before a file begins and "
          "while it grows")
      ->check(CLI::Range(kLeastFreeMB, kMostFree));
  AddUploadOptions(*command, request->uploads);
  command->add_flag("--no-audio", request->noAudio, "Leave the sound out");
  request->containerName = "kmv";
  request->kindName = "manual";
  request->streamName = "main";
  command->callback(
      [&options, &action, request] { action = [&options, request] { return Record(options, *request); }; });
}

}  // namespace recordctl
