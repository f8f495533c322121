// The KMV writer: one packet a frame, one system call a packet; index and tail when the file ends.
#include <atomic>
#include <cerrno>
#include <cstring>

#include "base/clock.h"
#include "base/log.h"
#include "format/byte_output.h"
#include "format/file_limits.h"
#include "format/kmv/kmv_format.h"
#include "format/measured_rate.h"
#include "record/task.h"

using record::Destination;

namespace {

constexpr int kCallsPerDisabledLog = 100;

}  // namespace

struct CKmvTask::State {
  explicit State(CRecordTask& task) : output(task, ".kmv") {}

  // head, tail and index describe the file being written; packet is the last packet's head.
  record::KmvVideoFileHead head;
  record::KmvVideoFileTail tail;
  record::KmvVideoIndex index;
  record::KmvPacketHead packet;
  std::uint32_t lastKeyTimestamp;
  record::ByteOutput output;

  // Appends the packet head and the payload to every open destination. The offset at which the packet begins
  // in the last of them, 0 when there is none.
  long long AppendPacket(char* data, int length) {
    long long offset = 0;
    for (Destination* destination : output.Destinations()) {
      if (!destination->IsOpen()) continue;
      offset = destination->offset;
      Append(*destination, data, length);
    }
    return offset;
  }

  void Append(Destination& destination, char* data, int length) {
    struct iovec parts[] = {{&packet, sizeof packet}, {data, static_cast<size_t>(length)}};
    if (!record::KmvPacketFits(destination.offset, static_cast<std::uint32_t>(length))) {
      output.FailFull(destination);
      return;
    }
    size_t written;
    if (output.Append(destination, parts, 2, sizeof packet + static_cast<size_t>(length), written)) return;
    if (written < sizeof packet)
      RECORD_LOG("write kmv packet header failed, err = %s\n\n", std::strerror(errno));
    else
      RECORD_LOG("write kmv packet failed, err = %s\n\n", std::strerror(errno));
  }

  bool IsNearlyFull() {
    for (const Destination* destination : output.Destinations()) {
      if (destination->IsOpen() && record::IsNearlyFull(record::KmvFinishedSize(destination->offset))) return true;
    }
    return false;
  }

  void ClearIndex() {
    index.lastSlot = 0;
    std::memset(index.slots, 0, sizeof index.slots);
  }
};

CKmvTask::CKmvTask(const RECORD_TASK_PARAM& param, const RecordConfig& config)
    : CRecordTask(param, config), m_state(std::make_unique<State>(*this)) {
  InitParam(m_param);
}

CKmvTask::~CKmvTask() {
  RECORD_LOG_TEXT("CKmvTask::~CKmvTask() \n\n");
  if (m_running != 0) Stop();
}

void CKmvTask::InitParam(const RECORD_TASK_PARAM& param) {
  State& s = *m_state;
  s.head = {};
  s.tail = {};
  s.index = {};
  s.packet = {};
  s.lastKeyTimestamp = 0;

  s.head.magic = record::KMV_HEAD_MAGIC;
  s.head.headSize = sizeof s.head;
  if (param.video_enable > 0) {
    record::KmvVideoFields& video = s.head.media.video;
    s.head.streamFlags |= RECORD_STREAM_VIDEO;
    std::strncpy(video.codec, record::KmvVideoCodecName(param.video_type), sizeof video.codec - 1);
    video.width = static_cast<std::uint32_t>(param.width);
    video.height = static_cast<std::uint32_t>(param.height);
    video.framerate = static_cast<std::uint32_t>(param.framerate);
    video.bitrate = static_cast<std::uint32_t>(param.bitrate);
  }
  if (param.audio_enable > 0) {
    record::KmvAudioFields& audio = s.head.media.audio;
    s.head.streamFlags |= RECORD_STREAM_AUDIO;
    std::strncpy(audio.codec, record::KmvAudioCodecName(param.audio_type), sizeof audio.codec - 1);
    audio.samplerate = static_cast<std::uint32_t>(param.samplerate);
    audio.bits = static_cast<std::uint32_t>(param.bits);
    audio.channels = static_cast<std::uint32_t>(param.channels);
    audio.parameter = static_cast<std::uint32_t>(param.audio_param_b);
    audio.framerate = static_cast<std::uint32_t>(param.audio_param_a);
  }
  s.head.version = record::kKmvVersion;
  s.head.scrambleEnabled = 0;
  s.head.scrambleStep = record::kKmvScrambleStep;
  s.head.scrambleStart = record::kKmvScrambleStart;
  s.packet.magic = record::KMV_PACKET_MAGIC;
}

void CKmvTask::SetVolData(char* data, int length) {
  CRecordTask::SetVolData(data, length);
  record::KmvVideoFields& video = m_state->head.media.video;
  std::memset(video.volData, 0, sizeof video.volData);
  std::memcpy(video.volData, m_info.volData, static_cast<size_t>(m_info.volLength));
  video.volLength = static_cast<std::uint32_t>(m_info.volLength);
}

int CKmvTask::RecordBegin() {
  record::ByteOutput& output = m_state->output;
  output.StartClock();
  m_info.totalBytes = 0;
  // Kept: receivers of uploads expect this name, with an extension that is not the file's.
  output.SetUploadName(output.UploadStem() + output.UploadKind() + ".avi");
  if (output.Open() != 0) return -1;
  if (WriteHeader() != 0) {
    RECORD_LOG_TEXT("write kmv header failed!\n\n");
    return -1;
  }
  output.Announce();
  return 0;
}

int CKmvTask::WriteHeader() {
  State& s = *m_state;
  for (Destination* destination : s.output.Destinations()) {
    if (!destination->IsOpen() || s.output.AppendBlock(*destination, &s.head, sizeof s.head)) continue;
    if (destination->isNetwork)
      RECORD_LOG("write kmv header to network storage failed , err = %s\n\n", std::strerror(errno));
    else
      RECORD_LOG("write kmv header failed, err = %s\n\n", std::strerror(errno));
  }
  return s.output.AnyOpen() ? 0 : -1;
}

int CKmvTask::RecordOneVideoFrame(int keyFrame, char* data, int length, unsigned int timestampMs) {
  if (m_param.video_enable <= 0) {
    static std::atomic<unsigned> s_calls{0};
    if (++s_calls % kCallsPerDisabledLog == 0) RECORD_LOG("video_enable %d.\n\n", m_param.video_enable);
    return 0;
  }
  if (length < 0) return 0;
  State& s = *m_state;
  if (s.head.scrambleEnabled > 0)
    record::KmvInvertBytes(reinterpret_cast<std::uint8_t*>(data), static_cast<size_t>(length), s.head.scrambleStep,
                           s.head.scrambleStart);
  if (keyFrame != 0) s.lastKeyTimestamp = timestampMs;
  s.packet.timestamp = timestampMs;
  s.packet.keyTimestamp = s.lastKeyTimestamp;
  s.packet.length = static_cast<std::uint32_t>(length);
  s.packet.frameType = keyFrame != 0 ? record::KMV_FRAME_KEY : record::KMV_FRAME_OTHER;
  s.packet.media = record::KMV_MEDIA_VIDEO;
  s.packet.sequence = static_cast<std::uint32_t>(m_info.videoFrames);
  const long long offset = s.AppendPacket(data, length);

  ++m_info.videoFrames;
  m_info.totalBytes += static_cast<std::uint32_t>(length);
  m_info.videoBytes += static_cast<std::uint32_t>(length);
  m_fileFull = s.IsNearlyFull();
  if (keyFrame != 0) {
    ++m_info.keyFrames;
    IndexPacket(offset);
  }
  return 0;
}

int CKmvTask::RecordOneAudioFrame(char* data, int length, unsigned int timestampMs) {
  if (m_param.audio_enable <= 0 || length < 0) return 0;
  State& s = *m_state;
  s.packet.timestamp = timestampMs;
  s.packet.keyTimestamp = 0;
  s.packet.length = static_cast<std::uint32_t>(length);
  s.packet.frameType = record::KMV_FRAME_OTHER;
  s.packet.media = record::KMV_MEDIA_AUDIO;
  s.packet.sequence = static_cast<std::uint32_t>(m_info.audioFrames);
  const long long offset = s.AppendPacket(data, length);

  if (m_param.video_enable <= 0) IndexPacket(offset);
  ++m_info.audioFrames;
  m_info.totalBytes += static_cast<std::uint32_t>(length);
  m_info.audioBytes += static_cast<std::uint32_t>(length);
  m_fileFull = s.IsNearlyFull();
  return 0;
}

void CKmvTask::IndexPacket(long long offset) {
  if (offset <= 0) return;
  ReadRunClock();
  UpdateIndex(static_cast<int>(static_cast<std::uint32_t>(offset)),
              static_cast<int>(ElapsedMilliseconds() / 1000));
}

void CKmvTask::UpdateIndex(int offset, int second) {
  record::KmvIndexUpdate(m_state->index, static_cast<std::uint32_t>(offset), second);
}

int CKmvTask::WriteTail() {
  State& s = *m_state;
  ReadRunClock();
  s.tail.magic = record::KMV_TAIL_MAGIC;
  s.tail.duration = static_cast<std::uint32_t>(ElapsedMilliseconds());
  s.tail.media = s.head.media;
  s.tail.media.video.framerate = static_cast<std::uint32_t>(CalVideoFramerate());
  s.tail.media.audio.framerate = static_cast<std::uint32_t>(CalAudioFramerate());
  s.tail.videoFrames = static_cast<std::uint32_t>(m_info.videoFrames);
  s.tail.audioFrames = static_cast<std::uint32_t>(m_info.audioFrames);
  s.tail.keyFrames = static_cast<std::uint32_t>(m_info.keyFrames);
  s.index.magic = record::KMV_INDEX_MAGIC;
  s.index.indexSize = sizeof s.index;
  for (Destination* destination : s.output.Destinations()) {
    if (!destination->IsOpen()) continue;
    s.tail.indexOffset = static_cast<std::uint32_t>(destination->offset);
    if (!s.output.AppendBlock(*destination, &s.index, sizeof s.index))
      RECORD_LOG("write kmv index failed, err = %s\n\n", std::strerror(errno));
    else if (!s.output.AppendBlock(*destination, &s.tail, sizeof s.tail))
      RECORD_LOG("write kmv tail failed, err = %s\n\n", std::strerror(errno));
  }
  return s.output.AnyOpen() ? 0 : -1;
}

int CKmvTask::CalVideoFramerate() {
  return record::CalVideoFramerate(m_info.videoFrames, m_preRecordedVideoFrames, ExactElapsedMilliseconds(),
                                   m_param);
}

int CKmvTask::CalAudioFramerate() {
  const auto duration = static_cast<double>(static_cast<float>(ExactElapsedMilliseconds()));
  if (!(duration > 0)) return m_param.audio_param_a;
  RECORD_LOG("1: audioframes=%d, duration=%f ms, real audio framerate=%f\n\n", m_info.audioFrames, duration,
             m_info.audioFrames * 1000.0 / duration);
  return record::MeasuredAudioRate(m_info.audioFrames, duration, m_param.audio_param_a);
}

int CKmvTask::RecordEnd() {
  State& s = *m_state;
  s.output.StopClock();
  WriteTail();
  RECORD_LOG_TEXT("write finished. start flush and closing...\n\n");
  s.output.Finish();
  RECORD_LOG("video frame = %d, audio frame = %d, key video frame = %d, msecons = %u.\n\n", m_info.videoFrames,
             m_info.audioFrames, m_info.keyFrames, s.tail.duration);
  s.ClearIndex();
  RemoveLockFile();
  return 0;
}
