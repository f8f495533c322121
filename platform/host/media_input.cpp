#include "platform/host/media_input.h"

#include <cerrno>
#include <ctime>

#include "platform/host/codecs.h"
#include "record/platform.h"

namespace record {
namespace {

// Enough for a key frame of any camera; an RTSP source tells its parameters at once.
constexpr const char* kAnalyseMicroseconds = "3000000";

bool IsNetworkUrl(const std::string& url) {
  return url.find("://") != std::string::npos && url.compare(0, 7, "file://") != 0;
}

bool HasScheme(const std::string& url, const char* scheme) {
  return url.rfind(std::string(scheme) + "://", 0) == 0;
}

}  // namespace

std::string PublicUrl(const std::string& url) {
  const size_t scheme = url.find("://");
  if (scheme == std::string::npos) return url;
  const size_t host = scheme + 3;
  const size_t at = url.rfind('@', url.find('/', host));
  if (at == std::string::npos || at < host) return url;
  return url.substr(0, host) + url.substr(at + 1);
}

double SystemWallMs() {
  struct timespec now;
  clock_gettime(CLOCK_REALTIME, &now);
  return static_cast<double>(now.tv_sec) * 1000.0 + static_cast<double>(now.tv_nsec / 1000000);
}

MediaInput::MediaInput(const InputRequest& request) : m_request(request), m_isNetwork(IsNetworkUrl(request.url)) {}

int MediaInput::ShouldInterrupt(void* self) {
  const MediaInput* input = static_cast<const MediaInput*>(self);
  if (input->m_request.stop->load(std::memory_order_relaxed)) return 1;
  return input->m_deadline != 0 && GetCurrentTimeStamp_u64() > input->m_deadline ? 1 : 0;
}

void MediaInput::SetDeadline(int milliseconds) {
  m_deadline = milliseconds > 0 ? GetCurrentTimeStamp_u64() + static_cast<unsigned long long>(milliseconds) : 0;
}

int MediaInput::Connect() {
  AVFormatContext* context = avformat_alloc_context();
  if (context == nullptr) return AVERROR(ENOMEM);
  context->interrupt_callback = {ShouldInterrupt, this};
  AVDictionary* options = nullptr;
  av_dict_set(&options, "analyzeduration", kAnalyseMicroseconds, 0);
  if (HasScheme(m_request.url, "rtsp")) av_dict_set(&options, "rtsp_transport", "tcp", 0);
  SetDeadline(m_request.openTimeoutMs);
  int result = avformat_open_input(&context, m_request.url.c_str(), nullptr, &options);
  av_dict_free(&options);
  // libavformat has freed the context, and may give the interruption any other name.
  if (result < 0) return ShouldInterrupt(this) != 0 ? AVERROR_EXIT : result;
  m_context.reset(context);
  m_openedAtMs = SystemWallMs();
  result = avformat_find_stream_info(context, nullptr);
  if (result >= 0 && ShouldInterrupt(this) != 0) result = AVERROR_EXIT;
  return result;
}

bool MediaInput::ChooseStreams(std::string* error) {
  AVFormatContext* context = m_context.get();
  const int video = av_find_best_stream(context, AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0);
  if (video < 0) {
    *error = "no video in " + PublicUrl(m_request.url);
    return false;
  }
  m_video = context->streams[video];
  if (!RecordableVideo(m_video->codecpar)) {
    *error = PublicUrl(m_request.url) + " has " + avcodec_get_name(m_video->codecpar->codec_id) +
             " video, which cannot be recorded (H.264, H.265 and MPEG-4 can)";
    return false;
  }
  const int audio =
      m_request.wantsAudio ? av_find_best_stream(context, AVMEDIA_TYPE_AUDIO, -1, video, nullptr, 0) : -1;
  if (audio >= 0) m_audio = context->streams[audio];
  for (unsigned i = 0; i < context->nb_streams; ++i) {
    const bool wanted = context->streams[i] == m_video || context->streams[i] == m_audio;
    context->streams[i]->discard = wanted ? AVDISCARD_DEFAULT : AVDISCARD_ALL;
  }
  return true;
}

std::string MediaInput::Reason(int code) const {
  const std::string url = PublicUrl(m_request.url);
  if (code == AVERROR(ENOENT)) return "no such file: " + url;
  if (code == AVERROR_HTTP_NOT_FOUND) return "no such stream: " + url;
  if (code == AVERROR_HTTP_UNAUTHORIZED) return "user name or password refused by " + url;
  if (code == AVERROR(ECONNREFUSED)) return "nobody answers at " + url;
  if (code == AVERROR_PROTOCOL_NOT_FOUND) return "no such kind of source: " + url;
  if (code == AVERROR_INVALIDDATA) return "neither video nor sound to be understood in " + url;
  if (code == AVERROR_EXIT || code == AVERROR(ETIMEDOUT)) {
    if (m_request.stop->load(std::memory_order_relaxed)) return "opening " + url + " was given up";
    return "no answer from " + url + " within " + std::to_string(m_request.openTimeoutMs) + " ms";
  }
  char text[AV_ERROR_MAX_STRING_SIZE] = "";
  av_strerror(code, text, sizeof(text));
  return "cannot open " + url + ": " + text;
}

std::unique_ptr<MediaInput> MediaInput::Open(const InputRequest& request, std::string* error) {
  std::unique_ptr<MediaInput> input(new MediaInput(request));
  const int result = input->Connect();
  if (result < 0) {
    *error = input->Reason(result);
    return nullptr;
  }
  if (!input->ChooseStreams(error)) return nullptr;
  const bool hasLength = input->m_context->duration != AV_NOPTS_VALUE && input->m_context->duration > 0;
  input->m_isLive = input->m_isNetwork && !(hasLength && !HasScheme(request.url, "rtsp"));
  return input;
}

int MediaInput::Read(AVPacket* packet) {
  SetDeadline(m_isNetwork ? m_request.silenceTimeoutMs : 0);
  const int result = av_read_frame(m_context.get(), packet);
  if (result != AVERROR_EXIT) return result;
  return m_request.stop->load(std::memory_order_relaxed) ? AVERROR_EXIT : AVERROR(ETIMEDOUT);
}

}  // namespace record
