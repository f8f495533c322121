// The feeding thread of a source: passes over a file, connections to a camera, and the packets of each.
#include <sys/prctl.h>

#include <algorithm>
#include <cmath>

#include "base/log.h"
#include "platform/host/media_source.h"

namespace record {
namespace {

constexpr unsigned long long kLongestPauseMs = 8000;
constexpr int kMostReadErrors = 100;  // in a row, then the rest of the file is given up
constexpr double kLargestReorderMs = 2000;

}  // namespace

void MediaSource::Run() {
  prctl(PR_SET_NAME, m_stream == STREAM_MAIN ? "HostStream0" : "HostStream1");
  SetState(HOST_STREAM_LIVE, "");
  while (RunPass()) {
  }
  m_input.reset();
}

// One connection, or one reading of a file. False: the source is through.
bool MediaSource::RunPass() {
  const PassEnd end = ReadToEnd();
  if (end == PassEnd::Stopped) return false;
  if (m_input->IsLive()) return Reconnect();
  if (end == PassEnd::Failed || m_passFrames == 0)
    return GiveUp("no frame could be read from " + PublicUrl(m_url));
  if (m_options.loop == 0) {
    SetState(HOST_STREAM_ENDED, "");
    return false;
  }
  std::string error;
  if (!OpenInput(&error)) return GiveUp(error);
  m_timeline->Restart();
  PublishConfig();
  return true;
}

bool MediaSource::GiveUp(const std::string& error) {
  m_videoHub->Interrupt();
  SetState(HOST_STREAM_FAILED, error);
  return false;
}

// The first pause is short, because most interruptions are; a camera that stays away is not pestered.
bool MediaSource::Reconnect() {
  const std::string lost = "lost the connection to " + PublicUrl(m_url);
  if (m_options.noReconnect != 0) return GiveUp(lost);
  // A camera that accepts and sends nothing is one that stays away.
  if (m_passFrames > 0) m_pauseMs = kFirstPauseMs;
  m_videoHub->Interrupt();
  SetState(HOST_STREAM_CONNECTING, lost);
  m_input.reset();
  std::string error;
  while (Rest(m_pauseMs)) {
    m_pauseMs = std::min(m_pauseMs * 2, kLongestPauseMs);
    if (!OpenInput(&error)) {
      m_input.reset();
      SetState(HOST_STREAM_CONNECTING, error);
      continue;
    }
    ++m_videoLost;
    ++m_audioLost;
    m_timeline->Restart();
    m_timeline->SetAnchor(m_options.wallClockMs != nullptr ? WallMs() : m_input->OpenedAtMs());
    PublishConfig();
    SetState(HOST_STREAM_LIVE, "");
    std::lock_guard<std::mutex> guard(m_infoMutex);
    ++m_info.reconnects;
    return true;
  }
  return false;
}

MediaSource::PassEnd MediaSource::ReadToEnd() {
  const AvPacketPtr packet(av_packet_alloc());
  if (packet == nullptr) return PassEnd::Failed;
  int errorsInARow = 0;
  while (!m_stop.load(std::memory_order_relaxed)) {
    const int result = m_input->Read(packet.get());
    if (result < 0) {
      const PassEnd end = AfterReadError(result, &errorsInARow);
      if (end != PassEnd::Lost) return end;
      continue;
    }
    errorsInARow = 0;
    const bool goOn = HandlePacket(packet.get());
    av_packet_unref(packet.get());
    if (!goOn) return PassEnd::Stopped;
    if (m_input->IsLive() && VideoIsSilent()) return PassEnd::EndOfInput;
  }
  return PassEnd::Stopped;
}

// Lost: something is missing, but reading goes on.
MediaSource::PassEnd MediaSource::AfterReadError(int error, int* inARow) {
  if (error == AVERROR_EXIT) return PassEnd::Stopped;
  if (error == AVERROR(EAGAIN)) return Rest(5) ? PassEnd::Lost : PassEnd::Stopped;
  if (error == AVERROR_EOF) return PassEnd::EndOfInput;
  if (error != AVERROR_INVALIDDATA || ++*inARow > kMostReadErrors) {
    char text[AV_ERROR_MAX_STRING_SIZE] = "";
    av_strerror(error, text, sizeof(text));
    Note("reading " + PublicUrl(m_url) + ": " + text);
    return PassEnd::EndOfInput;
  }
  ++m_videoLost;
  return PassEnd::Lost;
}

bool MediaSource::VideoIsSilent() const {
  return GetCurrentTimeStamp_u64() - m_lastVideoAt > static_cast<unsigned long long>(m_options.silenceTimeoutMs);
}

bool MediaSource::HandlePacket(AVPacket* packet) {
  const bool isVideo = packet->stream_index == m_input->Video()->index;
  const bool isAudio = m_audio != nullptr && packet->stream_index == m_input->Audio()->index;
  if (isVideo) {
    PublishVideo(packet);
  } else if (isAudio) {
    PublishAudio(packet);
  }
  return !m_stop.load(std::memory_order_relaxed);
}

// Decoding order, so that frames are stored as they come, moved by the constant by which the first key frame
// is shown later than it is decoded: without B-frames this is the time of showing.
Timeline::Stamp MediaSource::StampOf(Timeline::Track track, const AVStream* stream, const AVPacket* packet,
                                     double durationMs) {
  const double unit = av_q2d(stream->time_base) * 1000.0;
  const bool hasDts = packet->dts != AV_NOPTS_VALUE;
  const bool hasPts = packet->pts != AV_NOPTS_VALUE;
  std::optional<double> input;
  if (hasDts) {
    input = static_cast<double>(packet->dts) * unit;
  } else if (hasPts) {
    input = static_cast<double>(packet->pts) * unit;
  }
  if (track == Timeline::kVideo && hasDts) {
    if (m_reorderMs < 0 && hasPts) {
      m_reorderMs = std::clamp((static_cast<double>(packet->pts) - static_cast<double>(packet->dts)) * unit, 0.0,
                               kLargestReorderMs);
    }
    if (m_reorderMs > 0) *input += m_reorderMs;
  }
  const double duration = packet->duration > 0 ? static_cast<double>(packet->duration) * unit : durationMs;
  return m_timeline->Place(track, input, duration, WallMs());
}

// A source that is paced hands a frame on when its time has come; one that is behind does not wait.
void MediaSource::Pace(double stampMs) {
  if (m_input->IsLive() || m_options.unpaced != 0) return;
  const unsigned long long now = GetCurrentTimeStamp_u64();
  if (!m_isPacing) {
    m_isPacing = true;
    m_paceStampMs = stampMs;
    m_paceRunMs = now;
  }
  const double due = static_cast<double>(m_paceRunMs) + stampMs - m_paceStampMs;
  const double wait = due - static_cast<double>(now);
  if (wait >= 1) Rest(static_cast<unsigned long long>(wait));
}

void MediaSource::PublishVideo(AVPacket* packet) {
  m_lastVideoAt = GetCurrentTimeStamp_u64();
  const Timeline::Stamp stamp = StampOf(Timeline::kVideo, m_input->Video(), packet, m_frameMs);
  if (stamp.jumped) ++m_videoLost;
  Pace(stamp.ms);
  const bool isBroken = (packet->flags & AV_PKT_FLAG_CORRUPT) != 0;
  const bool isKey = (packet->flags & AV_PKT_FLAG_KEY) != 0;
  ShapedFrame frame;
  if (isBroken || !m_video->Shape(packet, &frame)) {
    ++m_videoLost;
    return;
  }
  if (m_publishedConfig != m_video->Config()) PublishConfig();  // the camera changed its settings
  m_videoHub->Publish({frame.data, frame.length, isKey, stamp.ms, m_videoLost, std::move(frame.owner)});
  m_videoLost = 0;
  ++m_passFrames;
  std::lock_guard<std::mutex> guard(m_infoMutex);
  ++m_info.videoFrames;
}

void MediaSource::PublishAudio(AVPacket* packet) {
  const int samples = m_audio->SamplesOf(packet->size);
  const int rate = m_input->Audio()->codecpar->sample_rate;
  const double durationMs = rate > 0 ? samples * 1000.0 / rate : 0.0;
  const Timeline::Stamp stamp = StampOf(Timeline::kAudio, m_input->Audio(), packet, durationMs);
  if (stamp.jumped) ++m_audioLost;
  Pace(stamp.ms);
  ShapedFrame frame;
  if ((packet->flags & AV_PKT_FLAG_CORRUPT) != 0 || !m_audio->Shape(packet, &frame)) {
    ++m_audioLost;
    return;
  }
  m_audioHub->Publish({frame.data, frame.length, false, stamp.ms, m_audioLost, std::move(frame.owner)});
  m_audioLost = 0;
  std::lock_guard<std::mutex> guard(m_infoMutex);
  ++m_info.audioFrames;
  if (samples > 0 && m_info.audioFramesPerSecond == 0) {
    m_info.audioFramesPerSecond = std::max(1, static_cast<int>(std::lround(static_cast<double>(rate) / samples)));
  }
}

}  // namespace record
