#include "platform/host/codecs.h"
#include "platform/host/length_prefix.h"
#include "platform/host/packet_shaper.h"
#include "platform/host/shaped_frame.h"

namespace record {

// The filters pass on what is Annex B already, so nothing has to be guessed about the container here.
bool VideoShaper::CreateFilter(const AVStream* stream) {
  const char* name = m_codec == VIDEO_CODEC_H264 ? "h264_mp4toannexb" : "hevc_mp4toannexb";
  const AVBitStreamFilter* kind = av_bsf_get_by_name(name);
  AVBSFContext* filter = nullptr;
  if (kind == nullptr || av_bsf_alloc(kind, &filter) < 0) return false;
  m_filter.reset(filter);
  filter->time_base_in = stream->time_base;
  return avcodec_parameters_copy(filter->par_in, stream->codecpar) >= 0 && av_bsf_init(filter) >= 0;
}

std::unique_ptr<VideoShaper> VideoShaper::Create(const AVStream* stream, std::string* error) {
  const std::optional<VideoCodec> codec = RecordableVideo(stream->codecpar);
  std::unique_ptr<VideoShaper> shaper(codec ? new VideoShaper(*codec) : nullptr);
  if (shaper == nullptr || (*codec != VIDEO_CODEC_MPEG4 && !shaper->CreateFilter(stream))) {
    *error = "the video's configuration is broken";
    return nullptr;
  }
  const AVCodecParameters* parameters = shaper->m_filter ? shaper->m_filter->par_out : stream->codecpar;
  if (parameters->extradata_size > 0) {
    DecoderSets sets =
        FindDecoderSets(*codec, parameters->extradata, static_cast<size_t>(parameters->extradata_size));
    if (sets.complete) shaper->m_config = std::move(sets.bytes);
  }
  return shaper;
}

bool VideoShaper::Filter(AVPacket* packet) {
  if (m_filter == nullptr) return true;
  if (av_bsf_send_packet(m_filter.get(), packet) < 0) {
    av_packet_unref(packet);
    return false;
  }
  return av_bsf_receive_packet(m_filter.get(), packet) >= 0;
}

bool VideoShaper::Shape(AVPacket* packet, ShapedFrame* frame) {
  if (packet->size <= 0 || !Filter(packet) || packet->size <= 0 || !ShapeKeyFrame(packet, frame)) return false;
  const auto length = static_cast<size_t>(frame->length);
  if (m_codec == VIDEO_CODEC_MPEG4 || HasLongStartCodes(frame->data, length)) return true;
  return TakeBytes(WithLongStartCodes(frame->data, length), frame);
}

bool VideoShaper::ShapeKeyFrame(AVPacket* packet, ShapedFrame* frame) {
  if ((packet->flags & AV_PKT_FLAG_KEY) == 0) return TakeWhole(packet, frame);
  DecoderSets sets = FindDecoderSets(m_codec, packet->data, static_cast<size_t>(packet->size));
  if (sets.complete) m_config = std::move(sets.bytes);
  // Sets that stand behind other units (where the filters put them) are said again in front.
  if (sets.complete && sets.inFront) return TakeWhole(packet, frame);
  if (m_config.empty()) return false;
  return TakeWithInsertion(packet, sets.insertionPoint, m_config.data(), m_config.size(), frame);
}

}  // namespace record
