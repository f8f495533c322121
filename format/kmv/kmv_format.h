// The KMV container: every structure of the file, once. Writer, reader, repair and inspection share it.
//
//   head (404) | packet head (24) + payload | ... | index (7212) | tail (416)
//
// Index and tail exist only in a file that was finished; the tail is always the last 416 bytes. All fields are
// little-endian and stand on disk as they stand in memory.
#ifndef FORMAT_KMV_KMV_FORMAT_H
#define FORMAT_KMV_KMV_FORMAT_H

#include <cstddef>
#include <cstdint>

#include "format/file_limits.h"
#include "record/types.h"

namespace record {

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "the structures are written as they stand in memory");

// On disk, never renumber.
enum KmvMagic : std::uint32_t {
  KMV_HEAD_MAGIC = 0xdcfeab01,
  KMV_PACKET_MAGIC = 0xdcfeab02,
  KMV_TAIL_MAGIC = 0xdcfeab03,
  KMV_INDEX_MAGIC = 0xdcfeab04,
};

// KmvPacketHead::media. On disk, never renumber.
enum KmvMedia : std::uint16_t { KMV_MEDIA_VIDEO = 0, KMV_MEDIA_AUDIO = 1 };

// KmvPacketHead::frameType. On disk, never renumber.
enum KmvFrameType : std::uint16_t { KMV_FRAME_OTHER = 0, KMV_FRAME_KEY = 1 };

constexpr int kKmvIndexSlots = 1800;            // seconds that the index covers
constexpr std::uint32_t kKmvVersion = 1;        // KmvVideoFileHead::version
constexpr std::uint32_t kKmvScrambleStep = 64;  // what the writer puts, with scrambling off
constexpr std::uint32_t kKmvScrambleStart = 2;
constexpr std::size_t kKmvVolDataMax = 256;
constexpr std::size_t kKmvCodecNameMax = 32;  // with its NUL

// All zero when the file holds no video.
struct KmvVideoFields {
  char codec[kKmvCodecNameMax];  // NUL-terminated, zero-filled
  std::uint32_t width;           // pixels
  std::uint32_t height;
  std::uint32_t framerate;               // frames per second: configured in the head, measured in the tail
  std::uint32_t bitrate;                 // bits per second
  std::uint8_t volData[kKmvVolDataMax];  // codec configuration, zero-filled behind its length
  std::uint32_t volLength;
};
static_assert(sizeof(KmvVideoFields) == 308);
static_assert(offsetof(KmvVideoFields, width) == 32 && offsetof(KmvVideoFields, framerate) == 40);
static_assert(offsetof(KmvVideoFields, volData) == 48 && offsetof(KmvVideoFields, volLength) == 304);

// All zero when the file holds no audio.
struct KmvAudioFields {
  char codec[kKmvCodecNameMax];  // NUL-terminated, zero-filled
  std::uint32_t samplerate;
  std::uint32_t bits;  // per sample
  std::uint32_t channels;
  std::uint32_t parameter;  // the task's audio_param_b; readers report it as the bit rate
  std::uint32_t framerate;  // frames per second: configured in the head, measured in the tail
};
static_assert(sizeof(KmvAudioFields) == 52);
static_assert(offsetof(KmvAudioFields, samplerate) == 32 && offsetof(KmvAudioFields, framerate) == 48);

// What head and tail have in common: the tail's copy is one assignment.
struct KmvMediaFields {
  KmvVideoFields video;
  KmvAudioFields audio;
};
static_assert(sizeof(KmvMediaFields) == 360 && offsetof(KmvMediaFields, audio) == 308);

struct KmvVideoFileHead {
  std::uint32_t magic;        // KMV_HEAD_MAGIC
  std::uint16_t headSize;     // 404; the first packet stands there
  std::uint16_t streamFlags;  // RecordStreamFlag
  KmvMediaFields media;
  std::uint32_t version;          // kKmvVersion
  std::uint32_t scrambleEnabled;  // > 0: video payloads are scrambled, see KmvInvertBytes; the writer puts 0
  std::uint32_t scrambleStep;
  std::uint32_t scrambleStart;  // in steps
  std::uint8_t reserved[20];    // zero
};
static_assert(sizeof(KmvVideoFileHead) == 404);
static_assert(offsetof(KmvVideoFileHead, headSize) == 4 && offsetof(KmvVideoFileHead, streamFlags) == 6);
static_assert(offsetof(KmvVideoFileHead, media) == 8);
static_assert(offsetof(KmvVideoFileHead, media.video.framerate) == 48);
static_assert(offsetof(KmvVideoFileHead, media.video.volData) == 56);
static_assert(offsetof(KmvVideoFileHead, media.video.volLength) == 312);
static_assert(offsetof(KmvVideoFileHead, media.audio) == 316);
static_assert(offsetof(KmvVideoFileHead, media.audio.parameter) == 360);
static_assert(offsetof(KmvVideoFileHead, media.audio.framerate) == 364);
static_assert(offsetof(KmvVideoFileHead, version) == 368 && offsetof(KmvVideoFileHead, scrambleEnabled) == 372);
static_assert(offsetof(KmvVideoFileHead, scrambleStep) == 376);
static_assert(offsetof(KmvVideoFileHead, scrambleStart) == 380 && offsetof(KmvVideoFileHead, reserved) == 384);

// In front of every payload.
struct KmvPacketHead {
  std::uint32_t magic;         // KMV_PACKET_MAGIC
  std::uint32_t timestamp;     // milliseconds
  std::uint32_t keyTimestamp;  // of the key frame that a video frame leans on (its own when it is one); audio 0
  std::uint32_t length;        // of the payload, bytes
  std::uint16_t frameType;     // KmvFrameType; audio KMV_FRAME_OTHER
  std::uint16_t media;         // KmvMedia
  std::uint32_t sequence;      // frames of this medium before this one in the file
};
static_assert(sizeof(KmvPacketHead) == 24);
static_assert(offsetof(KmvPacketHead, timestamp) == 4 && offsetof(KmvPacketHead, keyTimestamp) == 8);
static_assert(offsetof(KmvPacketHead, length) == 12 && offsetof(KmvPacketHead, frameType) == 16);
static_assert(offsetof(KmvPacketHead, media) == 18 && offsetof(KmvPacketHead, sequence) == 20);

struct KmvVideoIndex {
  std::uint32_t magic;                  // KMV_INDEX_MAGIC
  std::uint32_t lastSlot;               // the last one filled, 0..1799
  std::uint32_t indexSize;              // 7212
  std::uint32_t slots[kKmvIndexSlots];  // file offset of the first indexed packet of that second; 0: none
};
static_assert(sizeof(KmvVideoIndex) == 7212);
static_assert(offsetof(KmvVideoIndex, lastSlot) == 4 && offsetof(KmvVideoIndex, indexSize) == 8);
static_assert(offsetof(KmvVideoIndex, slots) == 12);

struct KmvVideoFileTail {
  std::uint32_t magic;        // KMV_TAIL_MAGIC
  std::uint32_t duration;     // milliseconds
  std::uint32_t indexOffset;  // of KmvVideoIndex
  std::uint32_t videoFrames;
  std::uint32_t audioFrames;
  std::uint32_t keyFrames;    // counted over the whole task, which may span several files
  KmvMediaFields media;       // with measured rates
  std::uint8_t reserved[32];  // zero
};
static_assert(sizeof(KmvVideoFileTail) == 416);
static_assert(offsetof(KmvVideoFileTail, duration) == 4 && offsetof(KmvVideoFileTail, indexOffset) == 8);
static_assert(offsetof(KmvVideoFileTail, videoFrames) == 12 && offsetof(KmvVideoFileTail, audioFrames) == 16);
static_assert(offsetof(KmvVideoFileTail, keyFrames) == 20 && offsetof(KmvVideoFileTail, media) == 24);
static_assert(offsetof(KmvVideoFileTail, media.video.framerate) == 64);
static_assert(offsetof(KmvVideoFileTail, media.audio) == 332);
static_assert(offsetof(KmvVideoFileTail, media.audio.framerate) == 380);
static_assert(offsetof(KmvVideoFileTail, reserved) == 384);

// -------------------------------------------------------------------------------------------- positions

constexpr long long kKmvHeadSize = sizeof(KmvVideoFileHead);
constexpr long long kKmvPacketHeadSize = sizeof(KmvPacketHead);
constexpr long long kKmvIndexSize = sizeof(KmvVideoIndex);
constexpr long long kKmvTailSize = sizeof(KmvVideoFileTail);
constexpr long long kKmvEndSize = kKmvIndexSize + kKmvTailSize;  // what finishing a file appends

// A file up to this size is never looked into for a tail.
constexpr long long kKmvNoTailSize = kKmvHeadSize + kKmvTailSize;

constexpr long long KmvTailOffset(long long fileSize) {
  return fileSize - kKmvTailSize;
}
constexpr long long KmvUsualIndexOffset(long long fileSize) {
  return fileSize - kKmvEndSize;
}
constexpr long long KmvPayloadOffset(long long packetOffset) {
  return packetOffset + kKmvPacketHeadSize;
}
constexpr long long KmvPacketEnd(long long packetOffset, std::uint32_t length) {
  return packetOffset + kKmvPacketHeadSize + length;
}
constexpr long long KmvFinishedSize(long long indexOffset) {
  return indexOffset + kKmvEndSize;
}
// Whether a packet of this length still leaves room for index and tail below the longest file.
constexpr bool KmvPacketFits(long long packetOffset, std::uint32_t length) {
  return KmvFinishedSize(KmvPacketEnd(packetOffset, length)) <= kLongestRecordFile;
}

// ------------------------------------------------------------------------------------------------ rules

inline bool KmvIsVideoKey(const KmvPacketHead& packet) {
  return packet.media == KMV_MEDIA_VIDEO && packet.frameType == KMV_FRAME_KEY;
}

// Notes that the packet at `offset` started in that second of the file: the first of a second wins, and the
// seconds skipped since the last call repeat the offset before them. Seconds beyond the index are ignored.
void KmvIndexUpdate(KmvVideoIndex& index, std::uint32_t offset, long long second);

// Inverts the bytes at start * step, (start + 1) * step, ... below `length`; twice gives the data back.
// Nothing happens with a step of 0.
void KmvInvertBytes(std::uint8_t* data, std::size_t length, std::uint32_t step, std::uint32_t start);

// The names in the head. "H.264" for every unknown VideoCodec.
const char* KmvVideoCodecName(int videoType);
const char* KmvAudioCodecName(int audioType);  // "" for every unknown AudioCodec
// The other way, from a field that need not be terminated. -1 for an unknown name.
int KmvVideoCodecType(const char (&name)[kKmvCodecNameMax]);
int KmvAudioCodecType(const char (&name)[kKmvCodecNameMax]);

}  // namespace record

#endif
