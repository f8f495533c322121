#include "tools/recordctl/minute_picture.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/frame.h>
}

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

namespace recordctl {
namespace {

constexpr int kColumns = 60;
constexpr int kRows = 24;
constexpr int kCellWidth = 12;
constexpr int kCellHeight = 16;
constexpr int kGap = 2;  // between cells, and twice as wide between quarters of an hour
constexpr int kWidth = kColumns * kCellWidth + (kColumns / kMinutesAQuarter - 1) * kGap + kGap;
constexpr int kHeight = kRows * kCellHeight + kGap;
constexpr int kBytesAPixel = 3;
constexpr std::uint8_t kBackground = 0xff;

struct FreeContext {
  void operator()(AVCodecContext* context) const { avcodec_free_context(&context); }
};
struct FreeFrame {
  void operator()(AVFrame* frame) const { av_frame_free(&frame); }
};
struct FreePacket {
  void operator()(AVPacket* packet) const { av_packet_free(&packet); }
};
struct CloseFile {
  void operator()(std::FILE* file) const { std::fclose(file); }
};
using Picture = std::unique_ptr<AVFrame, FreeFrame>;
using Packet = std::unique_ptr<AVPacket, FreePacket>;

void Draw(AVFrame& frame, const std::string& minutes) {
  for (int y = 0; y < kHeight; ++y)
    std::memset(frame.data[0] + y * frame.linesize[0], kBackground, kWidth * kBytesAPixel);
  for (int minute = 0; minute < kRows * kColumns; ++minute) {
    const Colour colour = ColourOf(minutes[static_cast<size_t>(minute)]);
    const int column = minute % kColumns;
    const int left = kGap + column * kCellWidth + column / kMinutesAQuarter * kGap;
    const int top = kGap + minute / kColumns * kCellHeight;
    for (int y = top; y < top + kCellHeight - kGap; ++y) {
      std::uint8_t* pixel = frame.data[0] + y * frame.linesize[0] + left * kBytesAPixel;
      for (int x = 0; x < kCellWidth - kGap; ++x, pixel += kBytesAPixel)
        std::memcpy(pixel, colour.data(), kBytesAPixel);
    }
  }
}

// Null when libavcodec has no PNG encoder or no memory.
Packet Encode(const std::string& minutes) {
  const AVCodec* codec = avcodec_find_encoder(AV_CODEC_ID_PNG);
  if (codec == nullptr) return nullptr;
  const std::unique_ptr<AVCodecContext, FreeContext> context(avcodec_alloc_context3(codec));
  const Picture frame(av_frame_alloc());
  Packet packet(av_packet_alloc());
  if (context == nullptr || frame == nullptr || packet == nullptr) return nullptr;
  context->width = frame->width = kWidth;
  context->height = frame->height = kHeight;
  context->pix_fmt = AV_PIX_FMT_RGB24;
  frame->format = AV_PIX_FMT_RGB24;
  context->time_base = {1, 1};
  if (avcodec_open2(context.get(), codec, nullptr) < 0 || av_frame_get_buffer(frame.get(), 0) < 0) return nullptr;
  Draw(*frame, minutes);
  if (avcodec_send_frame(context.get(), frame.get()) < 0 || avcodec_send_frame(context.get(), nullptr) < 0 ||
      avcodec_receive_packet(context.get(), packet.get()) < 0)
    return nullptr;
  return packet;
}

}  // namespace

Colour ColourOf(char minute) {
  switch (minute) {
    case 'A':
      return {0x2e, 0xa0, 0x43};
    case 'B':
      return {0xd1, 0x24, 0x2f};
    case 'C':
      return {0xe4, 0xe7, 0xeb};
    default:
      return {0xe3, 0xa0, 0x08};
  }
}

std::string WriteMinutePicture(const std::string& path, const std::string& minutes) {
  const Packet picture = Encode(minutes);
  if (picture == nullptr) return "libavcodec cannot make a PNG picture";
  std::unique_ptr<std::FILE, CloseFile> file(std::fopen(path.c_str(), "wbe"));
  if (file == nullptr) return std::strerror(errno);
  const auto size = static_cast<size_t>(picture->size);
  bool isWritten = std::fwrite(picture->data, 1, size, file.get()) == size;
  isWritten = std::fclose(file.release()) == 0 && isWritten;
  return isWritten ? "" : std::strerror(errno);
}

}  // namespace recordctl
