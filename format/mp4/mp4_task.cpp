// The MP4 writer: the platform's multiplexer does the writing, every frame is committed.
#include <algorithm>
#include <cstdio>

#include "base/clock.h"
#include "base/log.h"
#include "format/defaults.h"
#include "format/file_limits.h"
#include "format/mp4/mp4_codes.h"
#include "format/mp4/mp4_output.h"
#include "record/task.h"

using record::Destination;

namespace {

constexpr int kMp4DefaultWidth = 1280;
constexpr int kMp4DefaultHeight = 720;
constexpr int kKeyFrameInterval = 60;  // frames; what the records tell, whatever the stream does
constexpr int kG711Samples = 320;
constexpr int kAacSamples = 1024;
constexpr long long kLongestAllowance = 3600;
constexpr long long kSecondsFrom1904 = 2082844800;

// Beside the bytes of each frame, at most.
constexpr long long kTableBytesPerFrame = 32;

int OrDefault(int value, int fallback) {
  return value < 1 ? fallback : value;
}

Emp4VideoParams VideoParams(const RECORD_TASK_PARAM& param) {
  Emp4VideoParams video = {};
  video.codec = param.video_type;
  video.width = OrDefault(param.width, kMp4DefaultWidth);
  video.height = OrDefault(param.height, kMp4DefaultHeight);
  video.framerate = OrDefault(param.framerate, record::kDefaultFramerate);
  video.keyframe_interval = kKeyFrameInterval;
  return video;
}

// Nothing enabled for audio that an MP4 file cannot hold.
Emp4AudioParams AudioParams(const RECORD_TASK_PARAM& param) {
  Emp4AudioParams audio = {};
  switch (param.audio_type) {
    case AUDIO_CODEC_G711_ULAW:
      audio = {1, record::kMp4G711Ulaw, kG711Samples, 0, 0, {}};
      break;
    case AUDIO_CODEC_G711_ALAW:
      audio = {1, record::kMp4G711Alaw, kG711Samples, 0, 0, {}};
      break;
    case AUDIO_CODEC_AAC:
      audio = {1, record::kMp4Aac, kAacSamples, 0, 0, {}};
      break;
    default:
      break;
  }
  audio.samplerate = param.samplerate;
  audio.channels = OrDefault(param.channels, 1);
  return audio;
}

Emp4ExtraParams ExtraParams(const RECORD_TASK_PARAM& param) {
  Emp4ExtraParams extra = {};
  extra.duration = static_cast<std::int32_t>(std::min(2LL * param.duration, kLongestAllowance));
  extra.creation_time = static_cast<std::uint32_t>(record::WallNow().seconds + kSecondsFrom1904);
  return extra;
}

const unsigned char* Bytes(const char* data) {
  return reinterpret_cast<const unsigned char*>(data);
}

}  // namespace

struct CMp4Task::State {
  explicit State(CMp4Task& task) : output(task) {}

  record::Mp4Output output;
  long long tables = 0;
};

CMp4Task::CMp4Task(const RECORD_TASK_PARAM& param, const RecordConfig& config)
    : CRecordTask(param, config), m_state(std::make_unique<State>(*this)) {}

CMp4Task::~CMp4Task() = default;

void CMp4Task::SyncAV() {}

int CMp4Task::OpenFile(char* path, void*& muxer) {
  RECORD_LOG_TEXT("OpenFile .\n\n");
  muxer = nullptr;
  if (m_param.video_type != VIDEO_CODEC_H264 && m_param.video_type != VIDEO_CODEC_H265) {
    RECORD_LOG("######### Error: video_type %d not support... \n\n", m_param.video_type);
    return -1;
  }
  const Emp4VideoParams video = VideoParams(m_param);
  Emp4AudioParams audio = {};
  if (m_param.audio_enable > 0) audio = AudioParams(m_param);
  if (m_param.audio_enable > 0 && audio.enabled == 0)
    RECORD_LOG("######### Error: audio_type %d not support... \n\n", m_param.audio_type);
  const Emp4ExtraParams extra = ExtraParams(m_param);
  muxer = Emp4MuxerOpen(path, &video, &audio, &extra);
  if (muxer == nullptr) {
    RECORD_LOG_TEXT("Emp4MuxerOpen failed. return.\n");
    return -1;
  }
  RECORD_LOG("store file: %s ...\n\n", path);
  return 0;
}

int CMp4Task::RecordBegin() {
  RECORD_LOG_TEXT(".\n\n");
  State& s = *m_state;
  s.output.StartClock();
  s.tables = 0;
  s.output.SetUploadName(s.output.UploadStem() + s.output.UploadKind() + ".mp4");
  if (s.output.Open() != 0) return -1;
  s.output.Announce();
  return 0;
}

template <typename Write>
void CMp4Task::WriteAndCommit(const Write& write) {
  for (const Destination* destination : m_state->output.Destinations()) {
    if (destination->muxer == nullptr || write(destination->muxer) != 0) continue;
    const int error = Emp4MuxerCommit(destination->muxer);
    if (error != 0) std::printf("###### Emp4MuxerCommit fail:%d\n", error);
  }
}

// The total goes on from file to file, as the count of key frames does: kept.
void CMp4Task::Count(int length, std::uint32_t& bytes) {
  bytes += static_cast<std::uint32_t>(length);
  m_info.totalBytes += static_cast<std::uint32_t>(length);
  m_state->tables += kTableBytesPerFrame;
  m_fileFull = record::IsNearlyFull(m_state->tables + m_info.videoBytes + m_info.audioBytes);
}

int CMp4Task::RecordOneVideoFrame(int keyFrame, char* data, int length, unsigned int timestampMs) {
  WriteAndCommit(
      [&](void* muxer) { return Emp4MuxerWriteVideoNALU(muxer, keyFrame, Bytes(data), length, timestampMs); });
  ++m_info.videoFrames;
  if (keyFrame != 0) ++m_info.keyFrames;
  Count(length, m_info.videoBytes);
  return 0;
}

int CMp4Task::RecordOneAudioFrame(char* data, int length, unsigned int timestampMs) {
  WriteAndCommit([&](void* muxer) { return Emp4MuxerWriteAudio(muxer, Bytes(data), length, timestampMs); });
  ++m_info.audioFrames;
  Count(length, m_info.audioBytes);
  return 0;
}

int CMp4Task::RecordEnd() {
  RECORD_LOG("%s\n", m_state->output.Local().name.c_str());
  m_state->output.StopClock();
  RECORD_LOG_TEXT("write finished. start flush and closing...\n\n");
  m_state->output.Finish();
  RemoveLockFile();
  return 0;
}
