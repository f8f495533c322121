// recordctl info
#include <algorithm>
#include <memory>

#include "tools/recordctl/contents.h"
#include "tools/recordctl/options.h"
#include "tools/recordctl/output.h"
#include "tools/recordctl/record_state.h"
#include "tools/recordctl/time_text.h"

namespace recordctl {
namespace {

using record::LockState;

constexpr char kInfoFooter[] =
    "Examples:\n"
    "  recordctl info recordings/mnt/mmc0/manual/20260504/081500-av-1.kmv\n"
    "  recordctl --json info /mnt/mmc0/manual/20260504/081500-av-1.kmv\n"
    "\n"
    "Exit code 1 when something about the file does not fit together.";

struct Findings {
  RecordFile file;
  Contents contents;
  SideFile side;
  LockState lock = LockState::None;
  Ending ending = Ending::kComplete;

  bool IsRecording() const { return ending == Ending::kRecording; }
};

template <std::size_t size>
std::string Name(const char (&field)[size]) {
  return Printable(std::string(field, std::find(field, field + size, '\0')));
}

const char* LockName(LockState lock) {
  switch (lock) {
    case LockState::None:
      return "none";
    case LockState::Stale:
      return "stale";
    default:
      return "held";
  }
}

const char* SideFileName(SideFile::State state) {
  switch (state) {
    case SideFile::kMissing:
      return "missing";
    case SideFile::kWrongSize:
      return "wrong size";
    default:
      return "present";
  }
}

void AddSideFileComplaints(Findings& found) {
  if (found.IsRecording()) return;
  std::vector<std::string>& inconsistencies = found.contents.inconsistencies;
  const std::string complaint = SideFileComplaint(found.file.path, found.side, found.contents.totals);
  if (!complaint.empty()) inconsistencies.push_back(complaint);
  if (found.lock == LockState::Stale) {
    inconsistencies.emplace_back("a lock file is left over: its recording did not end properly");
  }
}

Json MediaJson(const Contents& contents) {
  const VIDEO_PARAM& video = contents.video;
  const AUDIO_PARAM& audio = contents.audio;
  Json json;
  if ((contents.streamFlags & RECORD_STREAM_VIDEO) != 0)
    json["video"] = {{"codec", Name(video.codec)}, {"width", video.width},
                     {"height", video.height},     {"framerate", video.framerate},
                     {"bitrate", video.bitrate},   {"config_bytes", video.config_length}};
  if ((contents.streamFlags & RECORD_STREAM_AUDIO) == 0) return json;
  json["audio"] = {{"codec", Name(audio.codec)},
                   {"samplerate", audio.samplerate},
                   {"bits", audio.bits},
                   {"channels", audio.channels},
                   {"bitrate", audio.bitrate}};
  if (contents.audioFramerate >= 0) json["audio"]["framerate"] = contents.audioFramerate;
  return json;
}

Json SideFileJson(const SideFile& side) {
  Json json = {{"state", SideFileName(side.state)}};
  if (side.state != SideFile::kRead) return json;
  json["start"] = IsoTime(StartMs(side.info));
  json["end"] = IsoTime(EndMs(side.info));
  json["seconds"] = side.info.nTimeSeconds;
  json["video_frames"] = side.info.videoFrames;
  json["key_frames"] = side.info.keyFrames;
  json["audio_frames"] = side.info.audioFrames;
  json["bytes"] = side.info.totalBytes;
  return json;
}

void PrintJson(const Findings& found) {
  const Contents& contents = found.contents;
  const record::FrameTotals& totals = contents.totals;
  Json json = {{"path", found.file.path},
               {"container", NameOf(found.file.container).name},
               {"state", EndingName(found.ending)},
               {"size", contents.fileSize}};
  json.update(contents.head.fields);
  json.update({{"video_frames", totals.videoFrames},
               {"key_frames", totals.keyFrames},
               {"audio_frames", totals.audioFrames},
               {"video_bytes", totals.videoBytes},
               {"audio_bytes", totals.audioBytes},
               {"torn_bytes", contents.tornBytes},
               {"first_ts_ms", totals.firstStamp},
               {"span_ms", totals.duration}});
  json.update(MediaJson(contents));
  json.update(contents.end.fields);
  json["side_file"] = SideFileJson(found.side);
  json["lock"] = LockName(found.lock);
  json["inconsistencies"] = contents.inconsistencies;
  WriteJson(json);
}

void PrintMedia(const Contents& contents) {
  const VIDEO_PARAM& video = contents.video;
  const AUDIO_PARAM& audio = contents.audio;
  if ((contents.streamFlags & RECORD_STREAM_VIDEO) != 0)
    WriteText("video        %s %ux%u, %u frames/s, %u bit/s, %u bytes of configuration\n",
              Name(video.codec).c_str(), video.width, video.height, video.framerate, video.bitrate,
              video.config_length);
  if ((contents.streamFlags & RECORD_STREAM_AUDIO) == 0) return;
  const std::string rate =
      contents.audioFramerate >= 0 ? std::to_string(contents.audioFramerate) + " frames/s, " : "";
  WriteText("audio        %s %u Hz, %u bits, channels: %u, %s%u bit/s\n", Name(audio.codec).c_str(),
            audio.samplerate, audio.bits, audio.channels, rate.c_str(), audio.bitrate);
}

void PrintNotes(const Notes& notes) {
  for (const auto& [label, text] : notes.lines) WriteText("%-12s %s\n", label.c_str(), Printable(text).c_str());
}

void PrintSideFile(const SideFile& side) {
  if (side.state != SideFile::kRead) {
    WriteText("side file    %s\n", SideFileName(side.state));
    return;
  }
  WriteText("side file    %s to %s, %d video (%d key) and %d audio frames, %s bytes\n",
            IsoTime(StartMs(side.info)).c_str(), IsoTime(EndMs(side.info)).c_str(), side.info.videoFrames,
            side.info.keyFrames, side.info.audioFrames, Grouped(side.info.totalBytes).c_str());
}

void PrintText(const Findings& found) {
  const Contents& contents = found.contents;
  const record::FrameTotals& totals = contents.totals;
  WriteText("file         %s, %s bytes\n", Printable(found.file.path).c_str(),
            Grouped(static_cast<unsigned long long>(contents.fileSize)).c_str());
  WriteText("state        %s\n", EndingName(found.ending));
  PrintNotes(contents.head);
  PrintMedia(contents);
  WriteText("packets      %lld video (%lld key), %lld audio, %s s from time stamp %u\n", totals.videoFrames,
            totals.keyFrames, totals.audioFrames, SecondsText(totals.duration).c_str(), totals.firstStamp);
  WriteText("payload      %s bytes video, %s bytes audio\n",
            Grouped(static_cast<unsigned long long>(totals.videoBytes)).c_str(),
            Grouped(static_cast<unsigned long long>(totals.audioBytes)).c_str());
  PrintNotes(contents.end);
  PrintSideFile(found.side);
  WriteText("lock         %s\n", LockName(found.lock));
  for (const std::string& line : contents.inconsistencies) WriteText("inconsistent %s\n", Printable(line).c_str());
  if (contents.inconsistencies.empty()) WriteText("consistent   yes\n");
}

int Info(const Options& options, const std::string& name) {
  Findings found;
  if (!FindRecordFile(options, name, found.file)) return kFailed;
  found.ending = EndingOf(found.file.path);
  found.lock = LockOf(found.file.path);
  found.side = ReadSideFile(found.file.path);
  found.contents = ReadContents(options, found.file, found.IsRecording());
  if (!found.contents.error.empty()) return Fail(found.contents.error);
  AddSideFileComplaints(found);
  if (options.json)
    PrintJson(found);
  else
    PrintText(found);
  return found.contents.inconsistencies.empty() ? kOk : kFailed;
}

}  // namespace

void AddInfoCommand(CLI::App& app, const Options& options, Action& action) {
  const auto file = std::make_shared<std::string>();
  CLI::App* command = app.add_subcommand("info", "Look into a record file and tell every inconsistency");
  command->footer(kInfoFooter);
  command->add_option("FILE", *file, "A record file")->required();
  command->callback([&options, &action, file] { action = [&options, file] { return Info(options, *file); }; });
}

}  // namespace recordctl
