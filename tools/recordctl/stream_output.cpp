#include "tools/recordctl/stream_output.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iterator>

#include "base/text.h"
#include "platform/host/av_handles.h"
#include "tools/recordctl/media_params.h"
#include "tools/recordctl/patient_file.h"

namespace recordctl {
namespace {

AVCodecID VideoId(int type) {
  if (type == VIDEO_CODEC_H265) return AV_CODEC_ID_HEVC;
  return type == VIDEO_CODEC_MPEG4 ? AV_CODEC_ID_MPEG4 : AV_CODEC_ID_H264;
}

AVCodecID AudioId(int type) {
  switch (type) {
    case AUDIO_CODEC_AAC:
      return AV_CODEC_ID_AAC;
    case AUDIO_CODEC_G711_ALAW:
      return AV_CODEC_ID_PCM_ALAW;
    case AUDIO_CODEC_PCM:
      return AV_CODEC_ID_PCM_S16LE;
    default:
      return AV_CODEC_ID_PCM_MULAW;
  }
}

// The two bytes that describe AAC-LC (ISO 14496-3, AudioSpecificConfig).
bool DescribeAac(AVCodecParameters& codec) {
  constexpr int kRates[] = {96000, 88200, 64000, 48000, 44100, 32000, 24000, 22050, 16000, 12000, 11025, 8000};
  const auto* rate = std::find(std::begin(kRates), std::end(kRates), codec.sample_rate);
  if (rate == std::end(kRates)) return false;
  codec.extradata = static_cast<std::uint8_t*>(av_mallocz(2 + AV_INPUT_BUFFER_PADDING_SIZE));
  if (!codec.extradata) return false;
  const auto index = static_cast<unsigned>(rate - std::begin(kRates));
  const unsigned config = 2u << 11 | index << 7 | static_cast<unsigned>(codec.ch_layout.nb_channels) << 3;
  codec.extradata[0] = static_cast<std::uint8_t>(config >> 8);
  codec.extradata[1] = static_cast<std::uint8_t>(config);
  codec.extradata_size = 2;
  return true;
}

// An ADTS head, which AAC frames carry and Matroska does not.
constexpr unsigned kAdtsHead = 7;

int WriteBytes(void* file, std::uint8_t* data, int length) {
  const int error = static_cast<PatientFile*>(file)->Write(data, length);
  return error == 0 ? length : AVERROR(error);
}

std::int64_t SeekTo(void* file, std::int64_t offset, int whence) {
  const bool isKnown = whence == SEEK_SET || whence == SEEK_CUR || whence == SEEK_END;
  return isKnown ? static_cast<PatientFile*>(file)->Seek(offset, whence) : AVERROR(ENOSYS);
}

AVIOContext* NewAvio(PatientFile& file) {
  constexpr int kBuffer = 32768;
  auto* const buffer = static_cast<unsigned char*>(av_malloc(kBuffer));
  AVIOContext* const avio = buffer ? avio_alloc_context(buffer, kBuffer, 1, &file, nullptr, WriteBytes,
                                                        file.CanSeek() ? SeekTo : nullptr)
                                   : nullptr;
  if (!avio) av_free(buffer);
  return avio;
}

// Whose reader went away, or is waited for no longer.
bool IsGivenUp(int error) {
  return error == AVERROR(EPIPE) || error == AVERROR(ECANCELED);
}

std::string VideoText(const VIDEO_PARAM& video) {
  const int type = VideoTypeOf(video);
  const char* codec = type == VIDEO_CODEC_H265 ? "H.265" : type == VIDEO_CODEC_MPEG4 ? "MPEG-4" : "H.264";
  return std::string(codec) + " " + std::to_string(video.width) + "x" + std::to_string(video.height);
}

bool HasSound(const AUDIO_PARAM& audio) {
  return audio.samplerate > 0;
}

// "" for such as may be either kind of G.711: no file tells.
std::string SoundText(const AUDIO_PARAM& audio) {
  if (IsVague(audio)) return "";
  return std::string(AudioTypeName(AudioTypeOf(audio))) + " at " + std::to_string(audio.samplerate) + " Hz" +
         (audio.channels > 1 ? ", " + std::to_string(audio.channels) + " channels" : "");
}

}  // namespace

struct StreamOutput::State {
  explicit State(const std::function<bool()>& isEnded) : file(isEnded) {}

  PatientFile file;
  AVFormatContext* context = nullptr;
  AVStream* video = nullptr;
  AVStream* audio = nullptr;
  long long lastVideo = -1;
  long long lastAudio = -1;
  bool isTransportStream = false;
  bool isAac = false;
  VIDEO_PARAM videoParam = {};  // as it was opened
  AUDIO_PARAM audioParam = {};
  std::string misfit;        // why pictures do not fit any more
  std::string withoutSound;  // why sound does not
  std::string error;

  bool AddVideo(const VIDEO_PARAM& param);
  bool AddAudio(const AUDIO_PARAM& param);
  bool Write(AVStream* stream, const char* data, unsigned length, long long timeMs, bool isKey);
  bool Fail(const char* text) {
    error = text;
    return false;
  }
};

bool StreamOutput::State::AddVideo(const VIDEO_PARAM& param) {
  video = avformat_new_stream(context, nullptr);
  if (!video) return Fail("no memory");
  AVCodecParameters& codec = *video->codecpar;
  codec.codec_type = AVMEDIA_TYPE_VIDEO;
  codec.codec_id = VideoId(VideoTypeOf(param));
  codec.width = static_cast<int>(param.width);
  codec.height = static_cast<int>(param.height);
  const size_t length = std::min<size_t>(param.config_length, sizeof param.config);
  codec.extradata = static_cast<std::uint8_t*>(av_mallocz(length + AV_INPUT_BUFFER_PADDING_SIZE));
  if (!codec.extradata) return Fail("no memory");
  std::memcpy(codec.extradata, param.config, length);
  codec.extradata_size = static_cast<int>(length);
  video->time_base = {1, 1000};
  return true;
}

bool StreamOutput::State::AddAudio(const AUDIO_PARAM& param) {
  const int type = AudioTypeOf(param);
  isAac = type == AUDIO_CODEC_AAC;
  if (isTransportStream && !isAac) return true;
  audio = avformat_new_stream(context, nullptr);
  if (!audio) return Fail("no memory");
  AVCodecParameters& codec = *audio->codecpar;
  codec.codec_type = AVMEDIA_TYPE_AUDIO;
  codec.codec_id = AudioId(type);
  codec.sample_rate = static_cast<int>(param.samplerate);
  av_channel_layout_default(&codec.ch_layout, std::clamp(static_cast<int>(param.channels), 1, 8));
  codec.bits_per_coded_sample = type == AUDIO_CODEC_PCM ? 16 : 8;
  audio->time_base = {1, 1000};
  if (isAac && !isTransportStream && !DescribeAac(codec)) return Fail("cannot hold this sound");
  return true;
}

bool StreamOutput::State::Write(AVStream* stream, const char* data, unsigned length, long long timeMs,
                                bool isKey) {
  const record::AvPacketPtr packet(av_packet_alloc());
  if (!packet || av_new_packet(packet.get(), static_cast<int>(length)) != 0) return Fail("no memory");
  std::memcpy(packet->data, data, length);
  packet->stream_index = stream->index;
  packet->pts = packet->dts = av_rescale_q(timeMs, {1, 1000}, stream->time_base);
  if (isKey) packet->flags |= AV_PKT_FLAG_KEY;
  const int written = av_write_frame(context, packet.get());
  avio_flush(context->pb);
  if (written >= 0 && context->pb->error == 0) return true;
  const int code = context->pb->error != 0 ? context->pb->error : written;
  if (IsGivenUp(code)) return false;
  char reason[AV_ERROR_MAX_STRING_SIZE] = "";
  av_strerror(code, reason, sizeof reason);
  error = std::string("writing failed: ") + reason;
  return false;
}

StreamOutput::StreamOutput(const std::function<bool()>& isEnded) : m_state(new State(isEnded)) {}

StreamOutput::~StreamOutput() {
  if (!m_state->context) return;
  if (m_state->lastVideo >= 0 || m_state->lastAudio >= 0) av_write_trailer(m_state->context);
  if (AVIOContext*& avio = m_state->context->pb; avio != nullptr) {
    avio_flush(avio);
    av_freep(&avio->buffer);
    avio_context_free(&avio);
  }
  avformat_free_context(m_state->context);
}

bool StreamOutput::Open(const std::string& path, const VIDEO_PARAM& video, const AUDIO_PARAM& audio) {
  State& state = *m_state;
  state.isTransportStream = record::EndsWith(path, ".ts");
  const char* format = state.isTransportStream ? "mpegts" : "matroska";
  if (avformat_alloc_output_context2(&state.context, nullptr, format, path.c_str()) < 0)
    return state.Fail("no memory");
  const int opened = state.file.Open(path);
  if (opened == ECANCELED) return false;
  if (opened != 0) return state.Fail("cannot be opened for writing");
  state.context->pb = NewAvio(state.file);
  if (!state.context->pb) return state.Fail("no memory");
  if (!state.AddVideo(video)) return false;
  if (HasSound(audio) && !state.AddAudio(audio)) return false;
  const int begun = avformat_write_header(state.context, nullptr);
  if (begun < 0) return IsGivenUp(begun) ? false : state.Fail("cannot hold what is played");
  state.videoParam = video;
  state.audioParam = audio;
  Follow(video, audio);
  return true;
}

void StreamOutput::Follow(const VIDEO_PARAM& video, const AUDIO_PARAM& audio) {
  State& state = *m_state;
  const std::string before = VideoText(state.videoParam);
  const std::string now = VideoText(video);
  state.misfit =
      now == before ? "" : "the recording changes from " + before + " to " + now + ", which does not fit in";
  state.withoutSound.clear();
  if (!HasSound(audio)) return;
  const std::string sound = SoundText(audio);
  const std::string soundBefore = SoundText(state.audioParam);
  if (state.isTransportStream && AudioTypeOf(audio) != AUDIO_CODEC_AAC)
    state.withoutSound = "MPEG-TS takes AAC only";
  else if (!state.audio)
    state.withoutSound = "there was none to begin with";
  else if (!sound.empty() && !soundBefore.empty() && sound != soundBefore)
    state.withoutSound = "it is " + sound + " now, and was " + soundBefore;
}

const std::string& StreamOutput::WithoutSound() const {
  return m_state->withoutSound;
}

bool StreamOutput::IsOpen() const {
  return m_state->context != nullptr;
}

// Times have to go up.
bool StreamOutput::WriteVideo(const char* data, unsigned length, long long timeMs, bool isKey) {
  State& state = *m_state;
  if (!state.misfit.empty()) {
    state.error = state.misfit;
    return false;
  }
  state.lastVideo = std::max(timeMs, state.lastVideo + 1);
  return state.Write(state.video, data, length, state.lastVideo, isKey);
}

bool StreamOutput::WriteAudio(const char* data, unsigned length, long long timeMs) {
  State& state = *m_state;
  if (!state.audio || !state.withoutSound.empty()) return true;
  const unsigned head = state.isAac && !state.isTransportStream && length > kAdtsHead ? kAdtsHead : 0;
  state.lastAudio = std::max(timeMs, state.lastAudio + 1);
  return state.Write(state.audio, data + head, length - head, state.lastAudio, true);
}

const std::string& StreamOutput::Error() const {
  return m_state->error;
}

}  // namespace recordctl
