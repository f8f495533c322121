#include "record/avi_header.h"

#include <cstring>

namespace {

constexpr std::uint32_t kFlags = 0x910;  // indexed, interleaved, trusted chunk types
constexpr std::uint32_t kVideoBuffer = 0x100000;
constexpr std::uint32_t kAudioBuffer = 12288;
constexpr std::uint32_t kVideoLength = 1801;
constexpr std::uint32_t kAudioLength = 480256;
constexpr std::uint16_t kBitsAPixel = 24;
constexpr std::uint16_t kUlawTag = 7;
constexpr std::uint16_t kAacTag = 8;

template <std::size_t size>
void Name(char (&to)[size], const char* name) {
  std::memcpy(to, name, size);
}

// Sizes are those of the structures: what stands behind the head up to the end of its part.
void Chunk(AVI_CHUNK_HEAD& head, const char* id, std::size_t wholePart) {
  Name(head.id, id);
  head.size = static_cast<std::uint32_t>(wholePart - sizeof head);
}

void List(AVI_LIST_HEAD& head, const char* id, std::size_t wholePart, const char* type) {
  Name(head.id, id);
  head.size = static_cast<std::uint32_t>(wholePart - sizeof(AVI_CHUNK_HEAD));
  Name(head.type, type);
}

void FillSuperIndex(AVI_SUPER_INDEX_ROOM& room, const char* chunkId) {
  Chunk(room.head, "JUNK", sizeof room);
  room.longs = 4;
  Name(room.chunkId, chunkId);
}

struct Video {
  int type;
  std::uint32_t width;
  std::uint32_t height;
  std::uint32_t bitrate;
  std::uint32_t framerate;
};

void FillBegin(AVI_HEADER_BEGIN& begin, std::size_t fileHeader, std::uint32_t streams, const Video& video) {
  List(begin.riff, "RIFF", fileHeader, "AVI ");
  List(begin.hdrl, "LIST",
       fileHeader - sizeof(AVI_LIST_HEAD) - sizeof(AVI_HEADER_END) + offsetof(AVI_HEADER_END, info), "hdrl");
  AVI_MAIN_HEADER& main = begin.main;
  Chunk(main.head, "avih", sizeof main);
  main.microsecondsAFrame = video.framerate > 0 ? 1000000 / video.framerate : 0;
  main.bytesASecond = video.bitrate / 8;
  main.flags = kFlags;
  main.streams = streams;
  main.suggestedBufferSize = kVideoBuffer;
  main.width = video.width;
  main.height = video.height;
}

void FillVideo(AVI_VIDEO_STREAM& stream, const Video& video) {
  const char* codec = video.type == VIDEO_CODEC_MPEG4 ? "XVID" : video.type == VIDEO_CODEC_H265 ? "HEVC" : "H264";
  List(stream.list, "LIST", sizeof stream, "strl");
  AVI_STREAM_HEADER& header = stream.header;
  Chunk(header.head, "strh", sizeof header);
  Name(header.type, "vids");
  std::memcpy(header.codec, codec, sizeof header.codec);
  header.scale = 1;
  header.rate = video.framerate;
  header.length = kVideoLength;
  header.suggestedBufferSize = kVideoBuffer;
  header.quality = -1;
  header.right = static_cast<std::uint16_t>(video.width);
  header.bottom = static_cast<std::uint16_t>(video.height);
  AVI_VIDEO_FORMAT& format = stream.format;
  Chunk(format.head, "strf", sizeof format);
  format.formatSize = format.head.size;
  format.width = video.width;
  format.height = video.height;
  format.planes = 1;
  format.bitCount = kBitsAPixel;
  std::memcpy(format.codec, codec, sizeof format.codec);
  format.imageSize = video.width * video.height * kBitsAPixel / 8;
  FillSuperIndex(stream.superIndex, "00dc");
}

void FillAudio(AVI_AUDIO_STREAM& stream, int type, std::uint32_t samplerate, std::uint32_t bits,
               std::uint32_t channels) {
  const bool known = type >= AUDIO_CODEC_G711_ULAW && type <= AUDIO_CODEC_PCM;
  List(stream.list, "LIST", sizeof stream, "strl");
  AVI_STREAM_HEADER& header = stream.header;
  Chunk(header.head, "strh", sizeof header);
  Name(header.type, "auds");
  if (type == AUDIO_CODEC_AAC)
    std::memcpy(header.codec, "MP4A", sizeof header.codec);
  else if (known)
    header.codec[0] = 1;
  header.scale = 1;
  header.rate = samplerate;
  header.length = kAudioLength;
  header.suggestedBufferSize = kAudioBuffer;
  header.quality = -1;
  header.sampleSize = 1;
  AVI_AUDIO_FORMAT& format = stream.format;
  Chunk(format.head, "strf", sizeof format);
  format.tag = type == AUDIO_CODEC_AAC ? kAacTag : known ? kUlawTag : std::uint16_t{0};
  format.channels = static_cast<std::uint16_t>(channels);
  format.samplerate = samplerate;
  format.bytesASecond = channels * bits * samplerate / 8;
  format.blockAlign = static_cast<std::uint16_t>(bits * channels / 8);
  FillSuperIndex(stream.superIndex, "01wb");
}

void FillEnd(AVI_HEADER_END& end) {
  Chunk(end.extended, "JUNK", offsetof(AVI_HEADER_END, info));
  Name(end.odml, "odml");
  Name(end.dmlh, "dmlh");
  end.dmlhSize = sizeof end.dmlhRoom;
  List(end.info, "LIST", offsetof(AVI_HEADER_END, junk) - offsetof(AVI_HEADER_END, info), "INFO");
  Chunk(end.software, "ISFT", sizeof end.software + sizeof "Lavf52.7.0");
  std::memcpy(end.softwareName, "Lavf52.7.0", sizeof "Lavf52.7.0");
  Chunk(end.junk, "JUNK", sizeof end.junk + sizeof end.room);
  Name(end.movi.id, "LIST");
  Name(end.movi.type, "movi");
}

Video VideoOf(int type, int width, int height, int bitrate, int framerate) {
  return {type, static_cast<std::uint32_t>(width), static_cast<std::uint32_t>(height),
          static_cast<std::uint32_t>(bitrate), framerate > 0 ? static_cast<std::uint32_t>(framerate) : 0};
}

}  // namespace

void init_avi_header(AVI_FILE_HEADER_AV* header, int videoType, int audioType, int width, int height, int bitrate,
                     int framerate, int samplerate, int bits, int channels) {
  *header = {};
  const Video video = VideoOf(videoType, width, height, bitrate, framerate);
  FillBegin(header->begin, sizeof *header, 2, video);
  FillVideo(header->video, video);
  FillAudio(header->audio, audioType, static_cast<std::uint32_t>(samplerate), static_cast<std::uint32_t>(bits),
            static_cast<std::uint32_t>(channels));
  FillEnd(header->end);
}

void init_avi_header_video(AVI_FILE_HEADER_VIDEO* header, int videoType, int width, int height, int bitrate,
                           int framerate) {
  *header = {};
  const Video video = VideoOf(videoType, width, height, bitrate, framerate);
  FillBegin(header->begin, sizeof *header, 1, video);
  FillVideo(header->video, video);
  FillEnd(header->end);
}
