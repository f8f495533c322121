// Owning handles of libavformat's and libavcodec's objects.
#ifndef PLATFORM_HOST_AV_HANDLES_H
#define PLATFORM_HOST_AV_HANDLES_H

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavcodec/bsf.h>
#include <libavformat/avformat.h>
#include <libswscale/swscale.h>
}

#include <memory>

namespace record {

struct AvDelete {
  void operator()(AVFormatContext* context) const { avformat_close_input(&context); }
  void operator()(AVBSFContext* filter) const { av_bsf_free(&filter); }
  void operator()(AVPacket* packet) const { av_packet_free(&packet); }
  void operator()(AVCodecContext* codec) const { avcodec_free_context(&codec); }
  void operator()(AVFrame* frame) const { av_frame_free(&frame); }
  void operator()(SwsContext* scaler) const { sws_freeContext(scaler); }
};

struct AvOutputDelete {  // a context whose AVIO, if any, is a buffer in memory
  void operator()(AVFormatContext* context) const {
    unsigned char* bytes = nullptr;
    if (context->pb != nullptr) avio_close_dyn_buf(context->pb, &bytes);
    av_free(bytes);
    avformat_free_context(context);
  }
};

struct AvCodecDelete {
  void operator()(AVCodecContext* context) const { avcodec_free_context(&context); }
  void operator()(AVCodecParserContext* parser) const { av_parser_close(parser); }
};

using AvInput = std::unique_ptr<AVFormatContext, AvDelete>;
using AvFilter = std::unique_ptr<AVBSFContext, AvDelete>;
using AvMemoryOutput = std::unique_ptr<AVFormatContext, AvOutputDelete>;
using AvPacketPtr = std::unique_ptr<AVPacket, AvDelete>;
using AvCodec = std::unique_ptr<AVCodecContext, AvDelete>;
using AvFramePtr = std::unique_ptr<AVFrame, AvDelete>;
using AvScaler = std::unique_ptr<SwsContext, AvDelete>;

}  // namespace record

#endif
