// The AVI container as it is recorded: every position in the file, once. Writer, reader, repair and inspection
// share it. The header's structures are in record/avi_header.h.
//
//   header (9896, without audio 5672) | chunk head (8) + frame | ... | 0 to 3 bytes 0xff | idx1 (8 + 16 a frame)
//
// The index and the sizes in the header come with the end of the file. Frames are not padded to even lengths one
// by one: only their sum is, once, to a multiple of four. All fields stand on disk as they stand in memory.
#ifndef FORMAT_AVI_AVI_FORMAT_H
#define FORMAT_AVI_AVI_FORMAT_H

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "record/avi_header.h"

namespace record {

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "the structures are written as they stand in memory");

constexpr std::uint32_t AviId(const char (&id)[5]) {
  return static_cast<std::uint32_t>(static_cast<unsigned char>(id[0])) |
         static_cast<std::uint32_t>(static_cast<unsigned char>(id[1])) << 8 |
         static_cast<std::uint32_t>(static_cast<unsigned char>(id[2])) << 16 |
         static_cast<std::uint32_t>(static_cast<unsigned char>(id[3])) << 24;
}

// On disk, never rename.
constexpr std::uint32_t kAviVideoId = AviId("00dc");
constexpr std::uint32_t kAviAudioId = AviId("01wb");
constexpr std::uint32_t kAviIndexId = AviId("idx1");
constexpr std::uint32_t kAviKeyFlag = 0x10;  // of a video key frame and of every audio chunk

// In front of every frame, and of the index.
struct AviChunkHead {
  std::uint32_t id;
  std::uint32_t length;  // bytes that follow
};
static_assert(sizeof(AviChunkHead) == 8 && offsetof(AviChunkHead, length) == 4);

struct AviIndexEntry {
  std::uint32_t id;
  std::uint32_t flags;
  std::uint32_t offset;  // of the chunk head, from the "movi" of the list: the first one stands at 4
  std::uint32_t size;    // of the frame
};
static_assert(sizeof(AviIndexEntry) == 16);
static_assert(offsetof(AviIndexEntry, flags) == 4 && offsetof(AviIndexEntry, offset) == 8);
static_assert(offsetof(AviIndexEntry, size) == 12);

static_assert(sizeof(AVI_FILE_HEADER_AV) == 9896 && sizeof(AVI_FILE_HEADER_VIDEO) == 5672);
static_assert(sizeof(AVI_HEADER_BEGIN) == 88 && sizeof(AVI_MAIN_HEADER) == 64);
static_assert(offsetof(AVI_FILE_HEADER_AV, begin.main.microsecondsAFrame) == 32);
static_assert(offsetof(AVI_FILE_HEADER_AV, begin.main.bytesASecond) == 36);
static_assert(offsetof(AVI_FILE_HEADER_AV, begin.main.streams) == 56);
static_assert(offsetof(AVI_FILE_HEADER_AV, begin.main.width) == 64);
static_assert(offsetof(AVI_FILE_HEADER_AV, video.header) == 100);
static_assert(offsetof(AVI_FILE_HEADER_AV, video.header.codec) == 112);
static_assert(offsetof(AVI_FILE_HEADER_AV, video.header.rate) == 132);
static_assert(offsetof(AVI_FILE_HEADER_AV, video.format) == 164);
static_assert(offsetof(AVI_FILE_HEADER_AV, video.superIndex) == 212);
static_assert(offsetof(AVI_FILE_HEADER_AV, audio) == 4336 && offsetof(AVI_FILE_HEADER_VIDEO, end) == 4336);
static_assert(offsetof(AVI_FILE_HEADER_AV, audio.header.codec) == 4360);
static_assert(offsetof(AVI_FILE_HEADER_AV, audio.format) == 4412);
static_assert(offsetof(AVI_FILE_HEADER_AV, audio.format.channels) == 4422);
static_assert(offsetof(AVI_FILE_HEADER_AV, audio.format.samplerate) == 4424);
static_assert(offsetof(AVI_FILE_HEADER_AV, audio.superIndex) == 4436);
static_assert(offsetof(AVI_FILE_HEADER_AV, end) == 8560);
static_assert(offsetof(AVI_FILE_HEADER_AV, end.info) == 8828 && offsetof(AVI_FILE_HEADER_AV, end.junk) == 8860);

// -------------------------------------------------------------------------------------------- positions

constexpr long long kAviChunkHeadSize = sizeof(AviChunkHead);
constexpr long long kAviIndexEntrySize = sizeof(AviIndexEntry);
constexpr long long kAviHeaderBeginSize = sizeof(AVI_HEADER_BEGIN);
constexpr int kAviPaddedTo = 4;
constexpr std::uint8_t kAviPadding = 0xff;

constexpr long long AviHeaderSize(bool audio) {
  return audio ? static_cast<long long>(sizeof(AVI_FILE_HEADER_AV))
               : static_cast<long long>(sizeof(AVI_FILE_HEADER_VIDEO));
}
// Index offsets and the list's size count from here: the list's type, four bytes before the first chunk.
constexpr long long AviListStart(bool audio) {
  return AviHeaderSize(audio) - 4;
}
constexpr long long AviMoviSizeOffset(bool audio) {
  return AviListStart(audio) - 4;
}
constexpr long long AviIndexOffset(bool audio, std::uint32_t moviSize) {
  return AviListStart(audio) + moviSize;
}
static_assert(offsetof(AVI_FILE_HEADER_AV, end.movi.size) == AviMoviSizeOffset(true) &&
              AviMoviSizeOffset(true) == 9888);
static_assert(offsetof(AVI_FILE_HEADER_VIDEO, end.movi.size) == AviMoviSizeOffset(false));
constexpr long long AviChunkEnd(long long chunkOffset, std::uint32_t length) {
  return chunkOffset + kAviChunkHeadSize + length;
}
constexpr long long AviPadded(long long chunkBytes) {
  return (chunkBytes + kAviPaddedTo - 1) / kAviPaddedTo * kAviPaddedTo;
}
// Of a file whose chunks, heads included, come to that many bytes. A file without frames gets no index.
constexpr long long AviFinishedSize(bool audio, long long chunkBytes, long long entries) {
  return AviHeaderSize(audio) + AviPadded(chunkBytes) + kAviChunkHeadSize + entries * kAviIndexEntrySize;
}

// Puts into a header what it has only when the file is finished.
inline void AviSetSizes(AVI_HEADER_BEGIN& begin, AVI_HEADER_END& end, long long chunkBytes, long long entries,
                        std::uint32_t videoFrames) {
  const bool audio = begin.main.streams == 2;
  begin.riff.size = static_cast<std::uint32_t>(AviFinishedSize(audio, chunkBytes, entries) - kAviChunkHeadSize);
  begin.main.totalFrames = videoFrames;
  end.movi.size = static_cast<std::uint32_t>(AviPadded(chunkBytes) + 4);
}

inline bool AviIsFrame(std::uint32_t id) {
  return id == kAviVideoId || id == kAviAudioId;
}

}  // namespace record

#endif
