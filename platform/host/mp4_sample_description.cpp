#include "platform/host/mp4_sample_description.h"

#include <algorithm>
#include <cstring>
#include <memory>

#include "platform/host/av_handles.h"
#include "platform/host/mp4_boxes.h"

namespace record {
namespace {

constexpr size_t kBoxHeadSize = 8;

std::uint32_t BigEndian32(const unsigned char* bytes) {
  return static_cast<std::uint32_t>(bytes[0]) << 24 | static_cast<std::uint32_t>(bytes[1]) << 16 |
         static_cast<std::uint32_t>(bytes[2]) << 8 | bytes[3];
}

// The first box of `type` among those in [from, end); its head and content.
bool FindBox(const unsigned char* data, const char* type, size_t* from, size_t* end) {
  for (size_t at = *from; at + kBoxHeadSize <= *end;) {
    const size_t size = BigEndian32(data + at);
    if (size < kBoxHeadSize || size > *end - at) return false;
    if (memcmp(data + at + 4, type, 4) == 0) {
      *from = at;
      *end = at + size;
      return true;
    }
    at += size;
  }
  return false;
}

Bytes TakeSampleDescription(const unsigned char* file, size_t size) {
  size_t from = 0;
  size_t end = size;
  for (const char* type : {"moov", "trak", "mdia", "minf", "stbl", "stsd"}) {
    if (!FindBox(file, type, &from, &end)) return {};
    if (std::strcmp(type, "stsd") != 0) from += kBoxHeadSize;
  }
  return Bytes(file + from, file + end);
}

bool SetUp(AVCodecParameters* target, const AVCodecParameters& values, const Bytes& extradata) {
  target->codec_type = values.codec_type;
  target->codec_id = values.codec_id;
  target->codec_tag = values.codec_tag;
  target->width = values.width;
  target->height = values.height;
  target->sample_rate = values.sample_rate;
  target->frame_size = values.frame_size;
  av_channel_layout_default(&target->ch_layout, values.ch_layout.nb_channels);
  target->extradata = static_cast<unsigned char*>(av_mallocz(extradata.size() + AV_INPUT_BUFFER_PADDING_SIZE));
  if (target->extradata == nullptr || extradata.empty()) return false;
  memcpy(target->extradata, extradata.data(), extradata.size());
  target->extradata_size = static_cast<int>(extradata.size());
  return true;
}

// libavformat knows how to put a codec's configuration into boxes: it writes a file without samples for it.
Bytes Describe(const AVCodecParameters& values, const Bytes& extradata) {
  AVFormatContext* context = nullptr;
  if (avformat_alloc_output_context2(&context, nullptr, "mp4", nullptr) < 0) return {};
  const AvMemoryOutput output(context);
  context->flags |= AVFMT_FLAG_BITEXACT;  // no version of libavformat in the file
  AVStream* stream = avformat_new_stream(context, nullptr);
  if (stream == nullptr || !SetUp(stream->codecpar, values, extradata)) return {};
  if (avio_open_dyn_buf(&context->pb) < 0) return {};
  AVDictionary* options = nullptr;
  av_dict_set(&options, "movflags", "empty_moov+default_base_moof", 0);
  const int result = avformat_write_header(context, &options);
  av_dict_free(&options);
  if (result < 0) return {};
  unsigned char* bytes = nullptr;
  const int size = avio_close_dyn_buf(context->pb, &bytes);
  context->pb = nullptr;
  const std::unique_ptr<unsigned char, decltype(&av_free)> file(bytes, av_free);
  return file == nullptr ? Bytes() : TakeSampleDescription(bytes, static_cast<size_t>(size));
}

}  // namespace

PictureSize SizeOfPictures(VideoCodec codec, const unsigned char* keyFrame, int length, PictureSize fallback) {
  const AVCodecID id = codec == VIDEO_CODEC_H264 ? AV_CODEC_ID_H264 : AV_CODEC_ID_HEVC;
  const std::unique_ptr<AVCodecParserContext, AvCodecDelete> parser(av_parser_init(id));
  const std::unique_ptr<AVCodecContext, AvCodecDelete> context(avcodec_alloc_context3(nullptr));
  if (parser == nullptr || context == nullptr) return fallback;
  Bytes padded(keyFrame, keyFrame + length);
  padded.resize(padded.size() + AV_INPUT_BUFFER_PADDING_SIZE);
  parser->flags |= PARSER_FLAG_COMPLETE_FRAMES;
  context->codec_id = id;
  unsigned char* frame = nullptr;
  int frameSize = 0;
  av_parser_parse2(parser.get(), context.get(), &frame, &frameSize, padded.data(), length, AV_NOPTS_VALUE,
                   AV_NOPTS_VALUE, 0);
  if (parser->width <= 0 || parser->height <= 0) return fallback;
  return {parser->width, parser->height};
}

// H.265 is "hvc1", although parameter sets stand in the samples too: some players know no other type.
Bytes DescribeVideo(VideoCodec codec, const Bytes& sets, PictureSize size) {
  AVCodecParameters values = {};
  values.codec_type = AVMEDIA_TYPE_VIDEO;
  values.codec_id = codec == VIDEO_CODEC_H264 ? AV_CODEC_ID_H264 : AV_CODEC_ID_HEVC;
  values.codec_tag = codec == VIDEO_CODEC_H264 ? MKTAG('a', 'v', 'c', '1') : MKTAG('h', 'v', 'c', '1');
  values.width = size.width;
  values.height = size.height;
  return Describe(values, sets);
}

Bytes DescribeAac(const AacConfig& config) {
  AVCodecParameters values = {};
  values.codec_type = AVMEDIA_TYPE_AUDIO;
  values.codec_id = AV_CODEC_ID_AAC;
  values.sample_rate = RateOf(config);
  values.frame_size = 1024;
  values.ch_layout.nb_channels = config.channels == 7 ? 8 : static_cast<int>(config.channels);
  return Describe(values, AudioConfigOf(config));
}

// libavformat puts G.711 into QuickTime files only, so this one is written here. With "chan" no player has to
// guess which speaker is meant.
Bytes DescribeG711(const char* type, int samplerate, int channels) {
  constexpr std::uint32_t kMono = 100 << 16 | 1;
  constexpr std::uint32_t kStereo = 101 << 16 | 2;
  Bytes bytes;
  BoxWriter out(bytes);
  out.FullBox("stsd", 0, 0, [&] {
    out.U32(1);
    out.Box(type, [&] {
      out.Zeros(6);
      out.U16(1);  // data reference
      out.Zeros(8);
      out.U16(static_cast<unsigned>(channels));
      out.U16(16);  // bits of a sample once it is decoded
      out.Zeros(4);
      out.U32(static_cast<std::uint32_t>(std::min(samplerate, 0xffff)) << 16);
      if (channels > 2) return;
      out.FullBox("chan", 0, 0, [&] {
        out.U32(channels == 1 ? kMono : kStereo);
        out.Zeros(8);
      });
    });
  });
  return bytes;
}

}  // namespace record
