#include "export/record_job.h"

#include <algorithm>
#include <memory>
#include <utility>

#include "base/log.h"

namespace record {
namespace {

// Frames of one file are in the order of time but for stamps that stutter and clocks that are set a little.
constexpr unsigned kDisorderSeconds = 30;
constexpr unsigned kRunUpSeconds = 2;

Mp4Clip::Settings ClipSettings(const RecordExportSettings& settings) {
  return {settings.seconds, true, 0, 0};
}

// What lies before the span need not be read. Should a seek fail or lead into the span, the file is begun anew.
int ReadFirst(const ExportSource& source, MediaFile& file, MediaFrame& frame) {
  const unsigned begin = source.piece->begin;
  if (begin <= source.startSecond + 2 * kRunUpSeconds) return file.Read(frame);
  const bool isSought = file.SkipTo(begin - source.startSecond - kRunUpSeconds) == 0;
  const int length = isSought ? file.Read(frame) : -1;
  if (length >= 0 && source.SecondOf(frame) < begin) return length;
  return file.Open(source.path) == 0 ? file.Read(frame) : -1;
}

}  // namespace

RecordExportJob::RecordExportJob(const ExportRequest& request, const RecordExportSettings& settings)
    : ExportJob(request, std::make_unique<Mp4Clip>(request.output, ClipSettings(settings))),
      m_toNextKey(settings.toNextKey) {}

void RecordExportJob::TakeFileParams(const VIDEO_PARAM& video, const AUDIO_PARAM& audio) {
  const AUDIO_PARAM& track = Clip().Audio();
  m_framerate = video.framerate;
  m_audio = audio;
  m_soundFits = TrackAudioCodec(audio) == TrackAudioCodec(track) && audio.samplerate == track.samplerate &&
                std::max(audio.channels, 1u) == std::max(track.channels, 1u);  // 0: not told, one
}

RecordExportJob::Where RecordExportJob::Locate(const ExportSource& source, const MediaFrame& frame) const {
  const unsigned second = source.SecondOf(frame);
  const ExportPiece& piece = *source.piece;
  if (second < piece.begin) return Where::kOutside;
  if (second <= piece.end) return Where::kInside;
  const bool goesOn = m_toNextKey && m_timeline.HasBegun() && &piece == &m_request.pieces.back();
  if (goesOn) return frame.isVideo && frame.isKey ? Where::kBehind : Where::kInside;
  return second > piece.end + kDisorderSeconds ? Where::kBehind : Where::kOutside;
}

ExportJob::Walk RecordExportJob::CopyFrames(const ExportSource& source, MediaFile& file) {
  m_timeline.BeginFile({source.startMs, file.HasStreamStamps(), file.HasSoundStamps(), m_framerate, m_audio});
  MediaFrame frame;
  for (int length = ReadFirst(source, file, frame); IsRunning(); length = file.Read(frame)) {
    if (length == 0) continue;
    const Where where = length < 0 ? Where::kBehind : Locate(source, frame);
    if (where == Where::kBehind) {
      RECORD_LOG("read finished: %s\n\n", source.path.c_str());
      break;
    }
    if (where == Where::kInside && Copy(source, frame) == Walk::kEnd) return Walk::kEnd;
  }
  return Walk::kGoOn;
}

ExportJob::Walk RecordExportJob::Copy(const ExportSource& source, const MediaFrame& frame) {
  ShowSecond(source, source.SecondOf(frame));
  // What damage costs is no part of the timeline, and so a gap. Before the begin there is nothing to lose.
  const bool isWanted =
      frame.isVideo ? frame.isKey || m_timeline.HasBegun() : m_soundFits && m_timeline.HasBegun();
  if (isWanted && LeaveOut(frame)) return Walk::kGoOn;
  if (!m_timeline.Place(frame) || (!frame.isVideo && !m_soundFits)) return Walk::kGoOn;
  const Walk walk = Write({frame.data, frame.length, frame.isVideo, frame.isKey, m_timeline.Timestamp()});
  if (walk == Walk::kGoOn && frame.isVideo) ShowPicture(m_timeline.TimeMs());
  return walk;
}

void RecordExportJob::LogFile(int number, const std::string& path, int spentMs) const {
  const ClipWriter& clip = Clip();
  RECORD_LOG("files %d: %s, total video frames: %u, audio frames: %u, spend %d ms\n\n", number, path.c_str(),
             clip.VideoFrames(), clip.AudioFrames(), spentMs);
}

}  // namespace record
