// Pictures: the newest key frame of a stream, decoded, scaled and made a JPEG.
#include <algorithm>
#include <array>
#include <cstring>
#include <string>
#include <vector>

#include "base/log.h"
#include "platform/host/annexb.h"
#include "platform/host/av_handles.h"
#include "platform/host/stream_hub.h"
#include "record_host/host.h"

namespace record {
namespace {

constexpr int kLargestSide = 8192;
constexpr int kUsualQuality = 85;
constexpr long long kOldestKeyMs = 60000;  // groups of pictures are shorter: who has sent none for so long is away

// The newest key frame, held for as long as one lives.
class KeyFrame {
 public:
  explicit KeyFrame(int stream) : m_stream(stream) {
    double lookBackMs = 0;  // the reader then stands at the newest one
    m_registered = GetStreamData(STREAM_REGISTER, stream, Id(), &lookBackMs) >= 0;
    if (m_registered) m_found = GetStreamData(STREAM_READ, stream, Id(), &m_frame) > 0 && m_frame.keyFrame != 0;
  }
  ~KeyFrame() {
    if (m_registered) GetStreamData(STREAM_UNREGISTER, m_stream, Id(), nullptr);
  }
  KeyFrame(const KeyFrame&) = delete;
  KeyFrame& operator=(const KeyFrame&) = delete;

  bool Found() const { return m_found; }
  const StreamFrame& Frame() const { return m_frame; }
  Bytes Config() const {
    StreamFrame config = {};
    if (GetStreamData(STREAM_GET_CONFIG, m_stream, Id(), &config) < 0) return {};
    return Bytes(config.data, config.data + config.length);
  }

 private:
  std::uintptr_t Id() const { return reinterpret_cast<std::uintptr_t>(this); }

  const int m_stream;
  bool m_registered = false;
  bool m_found = false;
  StreamFrame m_frame = {};
};

// Streams that were opened tell their codec; of those that a program feeds by itself the first unit tells: a
// parameter set of H.265 or H.264, else MPEG-4.
AVCodecID CodecOf(int stream, const Bytes& config, const StreamFrame& frame) {
  HostStreamInfoRecord info = {};
  int codec = HostStreamInfo(stream, &info) == 0 && info.state != HOST_STREAM_CLOSED ? info.videoCodec : -1;
  CodedUnit unit = {};
  const unsigned char* data = config.empty() ? frame.data : config.data();
  const size_t length = config.empty() ? static_cast<size_t>(frame.length) : config.size();
  if (codec < 0 && FindUnit(data, length, 0, &unit)) {
    const unsigned char head = data[unit.payload];
    const int h265Type = head >> 1;  // 32 to 34: VPS, SPS, PPS
    codec = VIDEO_CODEC_MPEG4;
    if ((head & 0x9f) == 7) codec = VIDEO_CODEC_H264;
    if (h265Type >= 32 && h265Type <= 34) codec = VIDEO_CODEC_H265;
  }
  if (codec == VIDEO_CODEC_H264) return AV_CODEC_ID_H264;
  if (codec == VIDEO_CODEC_H265) return AV_CODEC_ID_HEVC;
  return codec == VIDEO_CODEC_MPEG4 ? AV_CODEC_ID_MPEG4 : AV_CODEC_ID_NONE;
}

// A copy with the padding that decoders read into.
AvPacketPtr PacketOf(const StreamFrame& frame) {
  AvPacketPtr packet(av_packet_alloc());
  if (packet == nullptr || av_new_packet(packet.get(), frame.length) < 0) return nullptr;
  std::memcpy(packet->data, frame.data, static_cast<size_t>(frame.length));
  return packet;
}

AvFramePtr Decode(AVCodecID id, const Bytes& config, const StreamFrame& frame) {
  const AVCodec* decoder = avcodec_find_decoder(id);
  const AvCodec context(decoder != nullptr ? avcodec_alloc_context3(decoder) : nullptr);
  const AvPacketPtr packet = PacketOf(frame);
  AvFramePtr picture(av_frame_alloc());
  if (context == nullptr || packet == nullptr || picture == nullptr) return nullptr;
  context->thread_count = 1;
  context->max_pixels = static_cast<std::int64_t>(kLargestSide) * kLargestSide;
  if (id == AV_CODEC_ID_MPEG4 && !config.empty()) {  // the others have their sets in front of the key frame
    context->extradata = static_cast<std::uint8_t*>(av_mallocz(config.size() + AV_INPUT_BUFFER_PADDING_SIZE));
    if (context->extradata == nullptr) return nullptr;
    std::memcpy(context->extradata, config.data(), config.size());
    context->extradata_size = static_cast<int>(config.size());
  }
  if (avcodec_open2(context.get(), decoder, nullptr) < 0) return nullptr;
  if (avcodec_send_packet(context.get(), packet.get()) < 0) return nullptr;
  avcodec_send_packet(context.get(), nullptr);  // nothing follows: give what there is
  return avcodec_receive_frame(context.get(), picture.get()) == 0 ? std::move(picture) : nullptr;
}

// To `width` x `height` in the colours that JPEG has. One of them 0: what keeps the shape; both: as it is.
AvFramePtr Scale(const AVFrame& from, int width, int height) {
  AvFramePtr picture(av_frame_alloc());
  if (picture == nullptr || from.width <= 0 || from.height <= 0) return nullptr;
  if (width == 0) width = height == 0 ? from.width : static_cast<int>(1LL * height * from.width / from.height);
  if (height == 0) height = static_cast<int>(1LL * width * from.height / from.width);
  picture->width = std::clamp(width, 1, kLargestSide);
  picture->height = std::clamp(height, 1, kLargestSide);
  picture->format = AV_PIX_FMT_YUVJ420P;
  if (av_frame_get_buffer(picture.get(), 0) < 0) return nullptr;
  const AvScaler scaler(sws_getContext(from.width, from.height, static_cast<AVPixelFormat>(from.format),
                                       picture->width, picture->height, AV_PIX_FMT_YUVJ420P, SWS_BICUBIC, nullptr,
                                       nullptr, nullptr));
  if (scaler == nullptr) return nullptr;
  const int rows =
      sws_scale(scaler.get(), from.data, from.linesize, 0, from.height, picture->data, picture->linesize);
  return rows == picture->height ? std::move(picture) : nullptr;
}

// JPEG's scale of coarseness, 2 (best) to 31.
int Coarseness(int quality) {
  return 31 - std::clamp(quality, 1, 100) * 29 / 100;
}

AvPacketPtr Encode(AVFrame& picture, int quality) {
  const AVCodec* encoder = avcodec_find_encoder(AV_CODEC_ID_MJPEG);
  const AvCodec context(encoder != nullptr ? avcodec_alloc_context3(encoder) : nullptr);
  AvPacketPtr packet(av_packet_alloc());
  if (context == nullptr || packet == nullptr) return nullptr;
  context->width = picture.width;
  context->height = picture.height;
  context->pix_fmt = AV_PIX_FMT_YUVJ420P;
  context->time_base = {1, 25};
  context->thread_count = 1;
  context->flags |= AV_CODEC_FLAG_QSCALE;
  context->global_quality = Coarseness(quality) * FF_QP2LAMBDA;
  picture.quality = context->global_quality;
  picture.pict_type = AV_PICTURE_TYPE_NONE;
  if (avcodec_open2(context.get(), encoder, nullptr) < 0) return nullptr;
  if (avcodec_send_frame(context.get(), &picture) < 0) return nullptr;
  return avcodec_receive_packet(context.get(), packet.get()) == 0 ? std::move(packet) : nullptr;
}

// Whether the stream's key frame is one of the present, not what was left by a camera that is off.
bool IsPresent(int stream) {
  HubStream* hub = StreamHub::Get().Stream(stream);
  const long long age = hub != nullptr ? hub->KeyFrameAgeMs() : -1;
  return age >= 0 && age <= kOldestKeyMs;
}

bool HasEnded(int stream) {
  HostStreamInfoRecord info = {};
  return HostStreamInfo(stream, &info) == 0 && info.state == HOST_STREAM_ENDED;
}

// The request and the key frame that answers it.
using Answer = std::array<std::int64_t, 5>;

AvPacketPtr TakePicture(int stream, int width, int height, int quality) {
  static thread_local Answer t_given = {};
  av_log_set_level(AV_LOG_QUIET);
  const bool isPresent = IsPresent(stream);
  const KeyFrame key(stream);
  if (!isPresent || !key.Found()) {
    RECORD_LOG("no picture: stream %d has no %skey frame\n", stream, key.Found() ? "recent " : "");
    return nullptr;
  }
  // A series goes on by the clock: it would show the last moment of a file under ever later times.
  const Answer answer = {stream, width, height, quality, key.Frame().keyframeIndex};
  if (answer == t_given && HasEnded(stream)) {
    RECORD_LOG("no picture: the source of stream %d has ended\n", stream);
    return nullptr;
  }
  const Bytes config = key.Config();
  const AvFramePtr decoded = Decode(CodecOf(stream, config, key.Frame()), config, key.Frame());
  const AvFramePtr scaled = decoded != nullptr ? Scale(*decoded, width, height) : nullptr;
  AvPacketPtr jpeg = scaled != nullptr ? Encode(*scaled, quality > 0 ? quality : kUsualQuality) : nullptr;
  if (jpeg == nullptr)
    RECORD_LOG("no picture: stream %d, the key frame cannot be %s\n", stream,
               decoded == nullptr ? "decoded" : "made a JPEG");
  else
    t_given = answer;
  return jpeg;
}

}  // namespace
}  // namespace record

int TakeJpegPicture(int stream, int width, int height, int quality, JpegPicture* picture) {
  static thread_local record::AvPacketPtr t_jpeg;  // valid until the thread takes another one
  const auto isSide = [](int side) { return side >= 0 && side <= record::kLargestSide; };
  if (picture == nullptr || !isSide(width) || !isSide(height)) return -1;
  t_jpeg = record::TakePicture(stream, width, height, quality);
  if (t_jpeg == nullptr) return -1;
  *picture = {t_jpeg->data, t_jpeg->size};
  return 0;
}
