// The KMV side of looking into files and repairing them.
#include <algorithm>
#include <cstring>

#include "format/kmv/kmv_end.h"
#include "format/kmv/kmv_repair.h"
#include "tools/recordctl/contents.h"
#include "tools/recordctl/time_text.h"

namespace recordctl {
namespace {

using record::KmvEndState;
using record::KmvReport;

int FilledSlots(const record::KmvVideoIndex& index) {
  return static_cast<int>(
      std::count_if(std::begin(index.slots), std::end(index.slots), [](std::uint32_t slot) { return slot != 0; }));
}

void TakeMedia(const record::KmvMediaFields& media, Contents& contents) {
  VIDEO_PARAM& video = contents.video;
  std::memcpy(video.codec, media.video.codec, sizeof video.codec - 1);
  video.width = media.video.width;
  video.height = media.video.height;
  video.framerate = media.video.framerate;
  video.bitrate = media.video.bitrate;
  video.config_length = std::min<std::uint32_t>(media.video.volLength, sizeof video.config);
  std::memcpy(video.config, media.video.volData, sizeof video.config);
  AUDIO_PARAM& audio = contents.audio;
  std::memcpy(audio.codec, media.audio.codec, sizeof audio.codec - 1);
  audio.samplerate = media.audio.samplerate;
  audio.bits = media.audio.bits;
  audio.channels = media.audio.channels;
  audio.bitrate = media.audio.parameter;
  contents.audioFramerate = static_cast<int>(media.audio.framerate);
}

Notes TailNotes(const KmvReport& report, const char* absent) {
  const record::KmvVideoFileTail& tail = report.end.tail;
  Notes notes;
  if (report.endState == KmvEndState::Missing) {
    notes.lines.emplace_back("tail", absent);
    return notes;
  }
  notes.lines.emplace_back("tail", SecondsText(tail.duration) + " s, " + std::to_string(tail.videoFrames) +
                                       " video (" + std::to_string(tail.keyFrames) + " key) and " +
                                       std::to_string(tail.audioFrames) + " audio frames");
  notes.fields["tail_duration_ms"] = tail.duration;
  notes.fields["tail_video_frames"] = tail.videoFrames;
  notes.fields["tail_audio_frames"] = tail.audioFrames;
  notes.fields["tail_key_frames"] = tail.keyFrames;
  notes.fields["index_offset"] = tail.indexOffset;
  return notes;
}

Notes EndNotes(const KmvReport& report, bool growing) {
  const char* absent = growing ? "not yet" : "missing";
  const bool whole = report.endState == KmvEndState::Whole;
  const Notes tail = TailNotes(report, absent);
  Notes notes;
  notes.lines = tail.lines;
  notes.fields = {{"tail", report.endState != KmvEndState::Missing}, {"index", whole}};
  notes.fields.update(tail.fields);
  if (!whole) {
    notes.lines.emplace_back("index", absent);
    return notes;
  }
  const record::KmvVideoIndex& index = report.end.index;
  notes.lines.emplace_back("index", "at " + Grouped(report.end.tail.indexOffset) + ", up to second " +
                                        std::to_string(index.lastSlot) + ", " +
                                        std::to_string(FilledSlots(index)) + " seconds filled");
  notes.fields["index_last_second"] = index.lastSlot;
  notes.fields["index_filled_seconds"] = FilledSlots(index);
  return notes;
}

}  // namespace

Contents ReadKmvContents(const std::string& path, bool growing) {
  const KmvReport report = record::InspectKmv(path.c_str(), growing);
  Contents contents;
  static_cast<record::FileReport&>(contents) = report;
  contents.totals = report.totals;
  contents.hasWallStamps = true;
  contents.streamFlags = report.head.streamFlags;
  TakeMedia(report.Media(), contents);
  contents.head.lines.emplace_back("head", "version " + std::to_string(report.head.version));
  contents.head.fields["version"] = report.head.version;
  contents.end = EndNotes(report, growing);
  return contents;
}

bool HasKmvEnd(const std::string& path) {
  record::FileSource source;
  record::KmvEnd end;
  return source.Open(path.c_str()) && record::KmvReadEnd(source, source.Size(), end) == KmvEndState::Whole;
}

Repair RepairKmvEnd(const std::string& path, bool dryRun) {
  return EndRepair(record::RepairKmv(path.c_str(), dryRun), dryRun, "index and tail", "packets", "packet");
}

}  // namespace recordctl
