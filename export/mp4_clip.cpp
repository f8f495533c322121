#include <strings.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iterator>

#include "base/log.h"
#include "export/clip_writer.h"
#include "format/mp4/mp4_codes.h"
#include "record/platform.h"

namespace record {
namespace {

constexpr std::uint32_t kCreationTime = 2082844800;  // 1970 on the clock of MP4, which began in 1904
constexpr int kG711Samples = 320;                    // in a frame
constexpr int kAacSamples = 1024;

struct TrackName {
  const char* name;
  int code;
};
// Every reader has names of its own. Code 0 of sound is "none".
constexpr TrackName kTrackVideoNames[] = {{"H265", VIDEO_CODEC_H265},
                                          {"H.265", VIDEO_CODEC_H265},
                                          {"MPEG4", VIDEO_CODEC_MPEG4},
                                          {"MP4V", VIDEO_CODEC_MPEG4}};
constexpr TrackName kTrackAudioNames[] = {
    {"PCMU", kMp4G711Ulaw},   {"G.711", kMp4G711Ulaw},    {"G711", kMp4G711Ulaw}, {"PCMA", kMp4G711Alaw},
    {"G.711A", kMp4G711Alaw}, {"MPEG4-GENERIC", kMp4Aac}, {"AAC", kMp4Aac}};

template <size_t count>
int CodeOf(const TrackName (&names)[count], const char* name, int (*compare)(const char*, const char*),
           int otherwise) {
  for (const TrackName& each : names) {
    if (compare(each.name, name) == 0) return each.code;
  }
  return otherwise;
}

bool TellsOfMedium(int error) {
  constexpr int kErrors[] = {ENOSPC, EDQUOT, EIO, EFBIG, EROFS, ESTALE, ENODEV, ENXIO, ENOMEM};
  return std::find(std::begin(kErrors), std::end(kErrors), error) != std::end(kErrors);
}

// A multiplexer's result may be an errno; else what it leaves in errno counts, when it tells of the medium.
int MediumError(int result) {
  if (TellsOfMedium(-result)) return -result;
  return TellsOfMedium(errno) ? errno : 0;
}

// What calls that went well leave behind in passing; any other errno of a close tells of a loss.
bool IsChance(int error) {
  constexpr int kErrors[] = {ENOTTY, ENOENT, EEXIST, ESPIPE, EINVAL, EINTR, EAGAIN};
  return std::find(std::begin(kErrors), std::end(kErrors), error) != std::end(kErrors);
}

}  // namespace

int TrackVideoCodec(const VIDEO_PARAM& video) {
  return CodeOf(kTrackVideoNames, video.codec, strcasecmp, VIDEO_CODEC_H264);
}

int TrackAudioCodec(const AUDIO_PARAM& audio) {
  return CodeOf(kTrackAudioNames, audio.codec, std::strcmp, 0);
}

Mp4Clip::~Mp4Clip() {
  if (m_muxer) Emp4MuxerClose(m_muxer);
}

Emp4AudioParams Mp4Clip::AudioTrack() {
  Emp4AudioParams track = {};
  if (!m_settings.hasAudio) return track;
  const AUDIO_PARAM& audio = Audio();
  track.codec = TrackAudioCodec(audio);
  if (track.codec == 0) {
    RECORD_LOG("######### Error: audio_type %s not support... \n\n", audio.codec);
    return track;
  }
  track.enabled = 1;
  track.samples_per_frame = track.codec == kMp4Aac ? kAacSamples : kG711Samples;
  track.samplerate = static_cast<std::int32_t>(audio.samplerate);
  track.channels = audio.channels == 0 ? 1 : static_cast<std::int32_t>(audio.channels);
  return track;
}

void Mp4Clip::LogOpening(int codec, unsigned framerate) const {
  const VIDEO_PARAM& video = Video();
  if (m_settings.sourceInterval == 0)
    RECORD_LOG("codec=%s(%d), %uX%u, %u fps. target seconds=%u\n\n", video.codec, codec, video.width, video.height,
               framerate, m_settings.seconds);
  else
    RECORD_LOG("codec=%s(%d), %uX%u, %u fps. target seconds=%u, src timestamp interval=%u\n\n", video.codec, codec,
               video.width, video.height, framerate, m_settings.seconds, m_settings.sourceInterval);
}

int Mp4Clip::Open() {
  const VIDEO_PARAM& video = Video();
  const unsigned framerate = m_settings.framerate != 0 ? m_settings.framerate : video.framerate;
  Emp4VideoParams track = {};
  track.codec = TrackVideoCodec(video);
  track.width = static_cast<std::int32_t>(video.width);
  track.height = static_cast<std::int32_t>(video.height);
  track.framerate = static_cast<std::int32_t>(framerate);
  track.keyframe_interval = static_cast<std::int32_t>(video.keyframe_interval);
  const Emp4AudioParams audio = AudioTrack();
  const Emp4ExtraParams extra = {static_cast<std::int32_t>(m_settings.seconds), kCreationTime};
  LogOpening(track.codec, framerate);
  errno = 0;
  m_muxer = Emp4MuxerOpen(m_name.Choose().c_str(), &track, &audio, &extra);
  if (!m_muxer) {
    const int error = errno;
    RECORD_LOG_TEXT("Emp4MuxerOpen failed. return.\n\n");
    m_name.Abandon();
    return Fail(-1, error);
  }
  m_hasAudioTrack = audio.enabled != 0;
  if (m_name.IsTemporary()) m_room.Begin(m_name.Chosen());
  RECORD_LOG("store file: %s ...\n\n\n", m_name.Path().c_str());
  return 0;
}

int Mp4Clip::WriteFrame(const ClipFrame& frame) {
  return frame.isVideo
             ? Emp4MuxerWriteVideoNALU(m_muxer, frame.isKey ? 1 : 0, frame.data, frame.length, frame.timestampMs)
             : Emp4MuxerWriteAudio(m_muxer, frame.data, frame.length, frame.timestampMs);
}

int Mp4Clip::Write(const ClipFrame& frame) {
  if (!HasParams()) return 0;
  if (!m_muxer && Open() != 0) return -1;
  if (!frame.isVideo && !m_hasAudioTrack) return 0;
  if (frame.length > 0) m_room.Need(static_cast<unsigned>(frame.length));
  errno = 0;
  const int written = WriteFrame(frame);
  if (written != 0) {
    RECORD_LOG("Emp4Muxer Write fail:%d\n\n\n", written);
    return Fail(written, MediumError(written));
  }
  const int committed = Emp4MuxerCommit(m_muxer);
  if (committed != 0) {
    RECORD_LOG("Emp4MuxerCommit fail:%d\n\n\n", committed);
    return Fail(committed, MediumError(committed));
  }
  Count(frame);
  return 0;
}

int Mp4Clip::CloseFile() {
  m_room.GiveBack();
  errno = 0;
  Emp4MuxerClose(m_muxer);
  const int error = errno;
  m_muxer = nullptr;
  return IsChance(error) ? 0 : error;
}

}  // namespace record
