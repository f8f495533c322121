#include "format/avi/avi_head.h"

#include <memory>
#include <new>

namespace record {
namespace {

bool Is(const void* id, const char* name) {
  return std::memcmp(id, name, 4) == 0;
}

template <typename Header>
std::unique_ptr<Header> ReadTemplate(const FileSource& source) {
  std::unique_ptr<Header> header(new (std::nothrow) Header);
  if (header && source.ReadAt(0, header.get(), sizeof(Header)) != sizeof(Header)) header.reset();
  return header;
}

}  // namespace

VideoCodec AviHead::Codec() const {
  if (Is(video.codec, "XVID")) return VIDEO_CODEC_MPEG4;
  return Is(video.codec, "HEVC") ? VIDEO_CODEC_H265 : VIDEO_CODEC_H264;
}

bool AviHead::IsRecorded() const {
  return Is(begin.riff.id, "RIFF") && Is(begin.riff.type, "AVI ") && Is(movi.id, "LIST") && Is(movi.type, "movi");
}

AviHeadState AviReadHead(const FileSource& source, AviHead& head) {
  head = {};
  if (source.ReadAt(0, &head.begin, sizeof head.begin) != sizeof head.begin) return AviHeadState::Short;
  if (head.begin.main.streams == 2) {
    const auto header = ReadTemplate<AVI_FILE_HEADER_AV>(source);
    if (!header) return AviHeadState::ShortTemplate;
    head.video = header->video.header;
    head.audio = header->audio.header;
    head.audioFormat = header->audio.format;
    head.movi = header->end.movi;
    return AviHeadState::Read;
  }
  if (head.begin.main.streams != 1) return AviHeadState::UnknownStreams;
  const auto header = ReadTemplate<AVI_FILE_HEADER_VIDEO>(source);
  if (!header) return AviHeadState::ShortTemplate;
  head.video = header->video.header;
  head.movi = header->end.movi;
  return AviHeadState::Read;
}

}  // namespace record
