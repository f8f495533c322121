// The MP4 reader: the platform's demultiplexer, and what a file that still grows needs on top.
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>

#include "base/clock.h"
#include "base/log.h"
#include "format/mp4/mp4_codes.h"
#include "record/video_file.h"
#include "storage/layout.h"

namespace {

constexpr std::uint32_t kBitrate = 800;
constexpr std::uint32_t kAudioBits = 16;
constexpr std::uint32_t kAudioBitrate = 64000;
constexpr std::uint32_t kAudioExtra = 8;
constexpr int kFrameCount = 1000;
constexpr int kUnknownKeyInterval = 4000;
constexpr int kZone = 720;

struct DayTime {
  int hour, minute, second;
};

long long ToSeconds(const struct tm& day, const DayTime& time) {
  return zq_mktime(day.tm_year + 1900, day.tm_mon + 1, day.tm_mday, time.hour, time.minute, time.second, kZone);
}

// Digits that are missing leave a 0.
DayTime ParseDayTime(const std::string& name) {
  DayTime time = {0, 0, 0};
  std::sscanf(name.substr(0, 6).c_str(), "%02d%02d%02d", &time.hour, &time.minute, &time.second);
  return time;
}

// "<day>/<name>", the last two parts of a path.
std::string DayAndName(const std::string& path) {
  const size_t slash = path.rfind('/');
  if (slash == std::string::npos) return path;
  const size_t before = slash > 0 ? path.rfind('/', slash - 1) : std::string::npos;
  return path.substr(before == std::string::npos ? 0 : before + 1);
}

VIDEO_PARAM ToVideoParam(const Emp4VideoParams& from) {
  VIDEO_PARAM video = {};
  std::strcpy(video.codec, from.codec == VIDEO_CODEC_H265 ? "H265" : "H264");
  video.width = static_cast<std::uint32_t>(from.width);
  video.height = static_cast<std::uint32_t>(from.height);
  video.framerate = static_cast<std::uint32_t>(from.framerate);
  video.keyframe_interval = static_cast<std::uint32_t>(from.keyframe_interval);
  video.bitrate = kBitrate;
  const int length = std::clamp(from.config_length, 0, static_cast<int>(sizeof from.config));
  video.config_length = static_cast<std::uint32_t>(length);
  std::memcpy(video.config, from.config, video.config_length);
  return video;
}

const char* AudioCodecName(int code) {
  switch (code) {
    case record::kMp4G711Ulaw:
      return "PCMU";
    case record::kMp4G711Alaw:
      return "PCMA";
    case record::kMp4Aac:
      return "MPEG4-GENERIC";
    default:
      return "";
  }
}

AUDIO_PARAM ToAudioParam(const Emp4AudioParams& from) {
  AUDIO_PARAM audio = {};
  std::strcpy(audio.codec, AudioCodecName(from.codec));
  audio.samplerate = static_cast<std::uint32_t>(from.samplerate);
  audio.bits = kAudioBits;
  audio.channels = static_cast<std::uint32_t>(from.channels);
  audio.bitrate = kAudioBitrate;
  audio.extra = kAudioExtra;
  return audio;
}

}  // namespace

struct CMp4File::State {
  void* demuxer = nullptr;
  std::string path;
  VIDEO_PARAM video = {};
  AUDIO_PARAM audio = {};
  unsigned long streamFlags = 0;
  int duration = 0;   // seconds
  int framerate = 0;  // as the records have it: a file from elsewhere may say anything

  void CorrectIfGrowing();
  static int Sought(int result);
};

// A growing file does not tell its real length yet. The start's date is taken to be today's, so that one which
// was begun before midnight is a second long until it is finished.
void CMp4File::State::CorrectIfGrowing() {
  const std::string dayAndName = DayAndName(path);
  if (access(record::LockFilePath(dayAndName.c_str()).c_str(), F_OK) != 0) return;
  const DayTime from = ParseDayTime(dayAndName.substr(dayAndName.rfind('/') + 1));
  const struct tm today = record::LocalNow();
  const DayTime now = {today.tm_hour, today.tm_min, today.tm_sec};
  const long long start = ToSeconds(today, from);
  RECORD_LOG("from %04d-%02d-%02d %02d:%02d:%02d %d\n", today.tm_year + 1900, today.tm_mon + 1, today.tm_mday,
             from.hour, from.minute, from.second, static_cast<int>(start));
  const long long end = ToSeconds(today, now);
  const int difference = end > start ? static_cast<int>(end - start) : 1;
  RECORD_LOG("end %04d-%02d-%02d %02d:%02d:%02d %d, diff=%d\n", today.tm_year + 1900, today.tm_mon + 1,
             today.tm_mday, now.hour, now.minute, now.second, static_cast<int>(end), difference);
  const int rate = static_cast<int>(static_cast<long long>(duration) * (framerate - 1LL) / difference + 1);
  RECORD_LOG("Now is recording: %s, ajust MP4 duration_in_sec %d->%d, framerate %d->%d\n\n", path.c_str(),
             duration, difference, framerate, rate);
  duration = difference;
  framerate = rate;
}

CMp4File::CMp4File() : m_state(new State) {}

CMp4File::~CMp4File() {
  CMp4File::Close();
}

int CMp4File::Open(const char* path) {
  Close();
  State& s = *m_state;
  s = {};
  if (path == nullptr) return 0;
  s.path = path;
  Emp4VideoParams video = {};
  Emp4AudioParams audio = {};
  Emp4ExtraParams extra = {};
  s.demuxer = Emp4DemuxerOpen(path, &video, &audio, &extra);
  if (s.demuxer == nullptr) {
    RECORD_LOG_TEXT("Demux open fail..\n\n");
    return 0;
  }
  s.duration = extra.duration;
  s.framerate = video.framerate;
  s.CorrectIfGrowing();
  video.framerate = s.framerate;
  s.video = ToVideoParam(video);
  s.streamFlags = RECORD_STREAM_VIDEO;
  if (audio.enabled != 0) {
    s.streamFlags |= RECORD_STREAM_AUDIO;
    s.audio = ToAudioParam(audio);
  }
  return 1;
}

int CMp4File::Close() {
  if (m_state->demuxer != nullptr) Emp4DemuxerClose(m_state->demuxer);
  m_state->demuxer = nullptr;
  return 0;
}

int CMp4File::GetMeidaParam(unsigned long* flags, VIDEO_PARAM* video, AUDIO_PARAM* audio) {
  *flags = m_state->streamFlags;
  *video = m_state->video;
  *audio = m_state->audio;
  return 0;
}

int CMp4File::GetVideoFrameCount() {
  return kFrameCount;
}

int CMp4File::GetAudioFrameCount() {
  return kFrameCount;
}

int CMp4File::GetVideoFramerate() {
  return m_state->framerate;
}

int CMp4File::GetVideoFrameInterval() {
  return static_cast<int>(m_state->video.keyframe_interval);
}

int CMp4File::GetTimeDuration() {
  return m_state->duration;
}

int CMp4File::GetKeyFrameTimeInterval() {
  if (m_state->framerate == 0) return kUnknownKeyInterval;
  return static_cast<int>(1000LL * GetVideoFrameInterval() / m_state->framerate);
}

int CMp4File::State::Sought(int result) {
  if (result == 0) return 0;
  RECORD_LOG("Seek fail, err code:%d\n", result);
  return -1;
}

int CMp4File::SeekTimeOffset(unsigned long seconds) {
  if (m_state->demuxer == nullptr) return 0;
  // 32 bits of milliseconds are 49 days: what lies behind them lies behind every file's end.
  const unsigned long long milliseconds = std::min(seconds * 1000ULL, 0xffffffffULL);
  return State::Sought(Emp4DemuxerSeek(m_state->demuxer, static_cast<unsigned>(milliseconds)));
}

int CMp4File::SeekTimeByPercent(unsigned long percent) {
  if (m_state->demuxer == nullptr) return 0;
  return State::Sought(Emp4DemuxerSeekByPercent(m_state->demuxer, static_cast<unsigned>(percent)));
}

int CMp4File::GetTimeOffset() {
  return 0;
}

int CMp4File::GetMediaFrame(unsigned char** ppData, long& bOwned, long& bVideo, long& bKeyFrame,
                            unsigned long& nTimeStamp) {
  bOwned = 0;
  *ppData = nullptr;
  if (m_state->demuxer == nullptr) return -1;
  unsigned char* data = nullptr;
  int frameType = 0;
  int keyFrame = 0;
  unsigned timestampMs = 0;
  const int length = Emp4DemuxerReadFrame(m_state->demuxer, &data, &frameType, &keyFrame, &timestampMs);
  if (length < 0) {
    RECORD_LOG("Emp4DemuxerReadFrame err code:%d\n", length);
    return -1;
  }
  *ppData = data;
  bVideo = frameType == record::kMp4VideoFrame ? 1 : 0;
  bKeyFrame = keyFrame;
  nTimeStamp = timestampMs;
  return length;
}

int CMp4File::MoveNextKeyFrame() {
  if (m_state->demuxer != nullptr) Emp4DemuxerSeekToNextKey(m_state->demuxer);
  return 0;
}

int CMp4File::MovePrevKeyFrame() {
  return 0;
}
