// Opening a source, describing it, and its end; what its thread does is in media_pump.cpp.
#include "platform/host/media_source.h"

#include <algorithm>
#include <cmath>
#include <system_error>

#include "base/log.h"
#include "platform/host/blocked_signals.h"
#include "platform/host/codecs.h"

namespace record {
namespace {

constexpr int kDefaultTimeoutMs = 10000;

HostStreamOptions WithDefaults(HostStreamOptions options) {
  if (options.openTimeoutMs <= 0) options.openTimeoutMs = kDefaultTimeoutMs;
  if (options.silenceTimeoutMs <= 0) options.silenceTimeoutMs = kDefaultTimeoutMs;
  return options;
}

HostStreamInfoRecord NothingKnown() {
  HostStreamInfoRecord info = {};
  info.state = HOST_STREAM_CONNECTING;
  info.videoCodec = -1;
  info.audioCodec = AUDIO_CODEC_NONE;
  return info;
}

}  // namespace

MediaSource::MediaSource(int stream, const std::string& url, const HostStreamOptions& options)
    : m_stream(stream),
      m_url(url),
      m_options(WithDefaults(options)),
      m_videoHub(StreamHub::Get().Stream(stream)),
      m_audioHub(stream == STREAM_MAIN && options.noAudio == 0 ? StreamHub::Get().Stream(STREAM_AUDIO) : nullptr),
      m_info(NothingKnown()) {}

MediaSource::~MediaSource() {
  Stop();
}

bool MediaSource::Start() {
  std::string error;
  if (!OpenInput(&error)) {
    m_input.reset();
    SetState(HOST_STREAM_FAILED, error);
    return false;
  }
  const double soundEnd = m_audioHub != nullptr ? m_audioHub->LastTimestampMs() : 0.0;
  m_timeline = std::make_unique<Timeline>(m_input->IsLive(), std::max(m_videoHub->LastTimestampMs(), soundEnd));
  if (m_input->IsLive())
    m_timeline->SetAnchor(m_options.wallClockMs != nullptr ? WallMs() : m_input->OpenedAtMs());
  std::lock_guard<std::mutex> guard(m_stopMutex);
  if (m_stop.load()) return false;
  PublishConfig();
  AllSignalsBlocked blocked;
  try {
    m_thread = std::thread(&MediaSource::Run, this);
  } catch (const std::system_error&) {
    ClearStreams();
    SetState(HOST_STREAM_FAILED, "no thread to be had");
    return false;
  }
  return true;
}

void MediaSource::Stop() {
  std::thread thread;
  {
    std::lock_guard<std::mutex> guard(m_stopMutex);
    m_stop.store(true);
    thread.swap(m_thread);
  }
  m_stopped.notify_all();
  if (!thread.joinable()) return;
  thread.join();
  ClearStreams();
}

void MediaSource::ClearStreams() {
  m_videoHub->Clear();
  if (m_audioHub != nullptr) m_audioHub->Clear();
}

bool MediaSource::OpenInput(std::string* error) {
  m_input = MediaInput::Open(
      {m_url, m_audioHub != nullptr, m_options.openTimeoutMs, m_options.silenceTimeoutMs, &m_stop}, error);
  if (m_input == nullptr || !PrepareVideo(error)) return false;
  PrepareAudio();
  DescribeInput();
  m_reorderMs = -1;
  m_passFrames = 0;
  m_lastVideoAt = GetCurrentTimeStamp_u64();
  return true;
}

bool MediaSource::PrepareVideo(std::string* error) {
  const int before = Info().videoCodec;
  m_video = VideoShaper::Create(m_input->Video(), error);
  if (m_video == nullptr) return false;
  if (before >= 0 && before != m_video->Codec()) {
    *error = PublicUrl(m_url) + " came back with another video codec";
    return false;
  }
  return true;
}

// Sound that cannot be recorded does not stop the picture.
void MediaSource::PrepareAudio() {
  m_audio.reset();
  if (m_input->Audio() == nullptr) return;
  std::string error;
  m_audio = AudioShaper::Create(m_input->Audio(), &error);
  if (m_audio == nullptr) Note(error);
}

void MediaSource::DescribeInput() {
  const AVStream* stream = m_input->Video();
  AVFormatContext* context = m_input->Context();
  const AVRational rate = av_guess_frame_rate(context, const_cast<AVStream*>(stream), nullptr);
  const double framesPerSecond = rate.num > 0 && rate.den > 0 ? av_q2d(rate) : 0.0;
  m_frameMs = framesPerSecond > 0 ? 1000.0 / framesPerSecond : 40.0;

  std::lock_guard<std::mutex> guard(m_infoMutex);
  m_info.videoCodec = m_video->Codec();
  m_info.width = stream->codecpar->width;
  m_info.height = stream->codecpar->height;
  m_info.framerate = static_cast<int>(std::lround(framesPerSecond));
  const std::int64_t bitrate = stream->codecpar->bit_rate > 0 ? stream->codecpar->bit_rate : context->bit_rate;
  m_info.bitrate = bitrate > 0 && bitrate <= 0x7fffffff ? static_cast<int>(bitrate) : 0;
  m_info.audioCodec = m_audio != nullptr ? m_audio->Codec() : AUDIO_CODEC_NONE;
  if (m_audio == nullptr) return;
  const AVCodecParameters* audio = m_input->Audio()->codecpar;
  m_info.samplerate = audio->sample_rate;
  m_info.channels = audio->ch_layout.nb_channels;
  m_info.bits = m_audio->Codec() == AUDIO_CODEC_G711_ULAW || m_audio->Codec() == AUDIO_CODEC_G711_ALAW ? 8 : 16;
}

void MediaSource::PublishConfig() {
  m_publishedConfig = m_video->Config();
  m_videoHub->SetConfig(m_publishedConfig);
  if (m_audio != nullptr) m_audioHub->SetConfig(m_audio->Config());
}

HostStreamInfoRecord MediaSource::Info() {
  std::lock_guard<std::mutex> guard(m_infoMutex);
  return m_info;
}

void MediaSource::SetState(int state, const std::string& error) {
  std::lock_guard<std::mutex> guard(m_infoMutex);
  m_info.state = state;
  if (error.empty()) return;
  const size_t length = error.copy(m_info.error, sizeof(m_info.error) - 1);
  m_info.error[length] = '\0';
  RECORD_LOG("stream %d: %s\n", m_stream, error.c_str());
}

void MediaSource::Note(const std::string& error) {
  SetState(Info().state, error);
}

double MediaSource::WallMs() const {
  return m_options.wallClockMs != nullptr ? m_options.wallClockMs(m_options.clockContext) : SystemWallMs();
}

bool MediaSource::Rest(unsigned long long milliseconds) {
  std::unique_lock<std::mutex> lock(m_stopMutex);
  return !m_stopped.wait_for(lock, std::chrono::milliseconds(milliseconds), [this] { return m_stop.load(); });
}

}  // namespace record
