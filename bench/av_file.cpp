#include "bench/av_file.h"

extern "C" {
#include <libavutil/channel_layout.h>
#include <libavutil/mem.h>
}

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace bench {
namespace {

int Must(int result, const char* what) {
  if (result >= 0) return result;
  std::fprintf(stderr, "record_bench: libavformat: %s failed (%d)\n", what, result);
  std::exit(1);
}

constexpr AVRational kMilliseconds = {1, 1000};

}  // namespace

AvWriter::AvWriter(const std::string& path, const std::string& format, const std::string& flags, AvFlush flush)
    : m_packet(av_packet_alloc()), m_flush(flush) {
  av_log_set_level(AV_LOG_QUIET);
  Must(avformat_alloc_output_context2(&m_context, nullptr, format.c_str(), path.c_str()), "alloc");
  m_video = AddVideo();
  m_audio = AddAudio();
  if (m_flush != AvFlush::kBuffered) {
    m_context->flags |= AVFMT_FLAG_FLUSH_PACKETS;
    m_context->flush_packets = 1;
  }
  AVDictionary* options = nullptr;
  if (!flags.empty()) av_dict_set(&options, "movflags", flags.c_str(), 0);
  Must(avio_open(&m_context->pb, path.c_str(), AVIO_FLAG_WRITE), "open");
  Must(avformat_write_header(m_context, &options), "header");
  av_dict_free(&options);
}

AVStream* AvWriter::AddVideo() {
  AVStream* stream = avformat_new_stream(m_context, nullptr);
  AVCodecParameters* codec = stream->codecpar;
  codec->codec_type = AVMEDIA_TYPE_VIDEO;
  codec->codec_id = AV_CODEC_ID_H264;
  codec->width = 1920;
  codec->height = 1080;
  const std::vector<unsigned char>& sets = ParameterSets();
  codec->extradata = static_cast<uint8_t*>(av_mallocz(sets.size() + AV_INPUT_BUFFER_PADDING_SIZE));
  codec->extradata_size = static_cast<int>(sets.size());
  std::copy(sets.begin(), sets.end(), codec->extradata);
  stream->time_base = {1, kFramesPerSecond};
  stream->avg_frame_rate = {kFramesPerSecond, 1};
  return stream;
}

AVStream* AvWriter::AddAudio() {
  AVStream* stream = avformat_new_stream(m_context, nullptr);
  AVCodecParameters* codec = stream->codecpar;
  codec->codec_type = AVMEDIA_TYPE_AUDIO;
  codec->codec_id = AV_CODEC_ID_PCM_MULAW;
  codec->sample_rate = 8000;
  codec->bits_per_coded_sample = 8;
  codec->block_align = 1;
  codec->bit_rate = 64000;
  codec->frame_size = kAudioFrameBytes;
  av_channel_layout_default(&codec->ch_layout, 1);
  stream->time_base = {1, 8000};
  return stream;
}

void AvWriter::Write(const Frame& frame) {
  const AVStream* stream = frame.video ? m_video : m_audio;
  m_packet->data = frame.data;
  m_packet->size = frame.length;
  m_packet->stream_index = stream->index;
  m_packet->flags = frame.key || !frame.video ? AV_PKT_FLAG_KEY : 0;
  m_packet->pts = m_packet->dts = av_rescale_q(frame.ms, kMilliseconds, stream->time_base);
  m_packet->duration = av_rescale_q(kFrameMs, kMilliseconds, stream->time_base);
  if (m_flush == AvFlush::kEveryFrameDirect) {
    Must(av_write_frame(m_context, m_packet), "frame");
  } else {
    Must(av_interleaved_write_frame(m_context, m_packet), "frame");
    if (m_flush == AvFlush::kBuffered || m_flush == AvFlush::kFragments) return;
    Must(av_interleaved_write_frame(m_context, nullptr), "interleaving");
  }
  av_write_frame(m_context, nullptr);  // what the muxer itself holds back
  avio_flush(m_context->pb);
}

AvWriter::~AvWriter() {
  av_write_trailer(m_context);
  avio_closep(&m_context->pb);
  av_packet_free(&m_packet);
  avformat_free_context(m_context);
}

AvReader::AvReader(const std::string& path) : m_packet(av_packet_alloc()) {
  av_log_set_level(AV_LOG_QUIET);
  Must(avformat_open_input(&m_context, path.c_str(), nullptr, nullptr), "open input");
}

AvReader::~AvReader() {
  av_packet_free(&m_packet);
  avformat_close_input(&m_context);
}

const AVPacket* AvReader::Read() {
  av_packet_unref(m_packet);
  return av_read_frame(m_context, m_packet) >= 0 ? m_packet : nullptr;
}

const AVPacket* AvReader::ReadVideo() {
  const AVPacket* packet;
  do {
    packet = Read();
  } while (packet != nullptr &&
           m_context->streams[packet->stream_index]->codecpar->codec_type != AVMEDIA_TYPE_VIDEO);
  return packet;
}

void AvReader::Seek(int second) {
  const AVRational base = m_context->streams[0]->time_base;
  Must(av_seek_frame(m_context, 0, av_rescale_q(second, {1, 1}, base), AVSEEK_FLAG_BACKWARD), "seek");
}

void MakeAvFile(const std::string& format, const std::string& flags, const std::string& path, const Clip& clip) {
  AvWriter writer(path, format, flags, AvFlush::kBuffered);
  for (const Frame& frame : clip.Frames()) writer.Write(frame);
}

}  // namespace bench
