// The header of an AVI record file: fixed templates, filled from the parameters of a recording. A reader of such
// a file may take the whole header in one piece; the frame chunks stand right behind it.
//
// All integers are little-endian, names are four characters without a terminator.
#ifndef RECORD_AVI_HEADER_H
#define RECORD_AVI_HEADER_H

#include <cstddef>
#include <cstdint>

#include "record/types.h"

// In front of every chunk and of every list.
struct AVI_CHUNK_HEAD {
  char id[4];
  std::uint32_t size;  // bytes that follow
};
struct AVI_LIST_HEAD {
  char id[4];          // "RIFF" or "LIST"
  std::uint32_t size;  // bytes that follow, the type included
  char type[4];
};

struct AVI_MAIN_HEADER {
  AVI_CHUNK_HEAD head;                // "avih", 56
  std::uint32_t microsecondsAFrame;   // 1000000 / frame rate; measured, once the file is finished
  std::uint32_t bytesASecond;         // bit rate / 8
  std::uint32_t paddingGranularity;   // 0
  std::uint32_t flags;                // 0x910
  std::uint32_t totalFrames;          // 0 until the file is finished
  std::uint32_t initialFrames;        // 0
  std::uint32_t streams;              // 2 with audio, 1 without
  std::uint32_t suggestedBufferSize;  // 0x100000
  std::uint32_t width;                // pixels
  std::uint32_t height;
  std::uint32_t reserved[4];  // 0
};

struct AVI_STREAM_HEADER {
  AVI_CHUNK_HEAD head;    // "strh", 56
  char type[4];           // "vids" or "auds"
  std::uint8_t codec[4];  // video "XVID", "H264", "HEVC"; audio "MP4A" or 1, 0, 0, 0
  std::uint32_t flags;    // 0
  std::uint16_t priority;
  std::uint16_t language;
  std::uint32_t initialFrames;
  std::uint32_t scale;  // 1
  std::uint32_t rate;   // video: frames a second, measured once the file is finished; audio: samples a second
  std::uint32_t start;
  std::uint32_t length;               // video 1801, audio 480256 whatever the file holds: kept, tools expect it
  std::uint32_t suggestedBufferSize;  // video 0x100000, audio 12288
  std::int32_t quality;               // -1
  std::uint32_t sampleSize;           // video 0, audio 1
  std::uint16_t left;
  std::uint16_t top;
  std::uint16_t right;   // video: the width
  std::uint16_t bottom;  // video: the height
};

struct AVI_VIDEO_FORMAT {
  AVI_CHUNK_HEAD head;       // "strf", 40
  std::uint32_t formatSize;  // 40
  std::uint32_t width;
  std::uint32_t height;
  std::uint16_t planes;       // 1
  std::uint16_t bitCount;     // 24
  std::uint8_t codec[4];      // as in the stream header
  std::uint32_t imageSize;    // width * height * 24 / 8
  std::uint32_t reserved[4];  // 0
};

struct AVI_AUDIO_FORMAT {
  AVI_CHUNK_HEAD head;  // "strf", 16
  std::uint16_t tag;    // 8 for AAC, 7 for everything else: kept, receivers expect it
  std::uint16_t channels;
  std::uint32_t samplerate;
  std::uint32_t bytesASecond;
  std::uint16_t blockAlign;  // bytes of a sample of all channels
  std::uint16_t bits;        // 0: kept
};

// Room for a second level of index, never filled.
struct AVI_SUPER_INDEX_ROOM {
  AVI_CHUNK_HEAD head;      // "JUNK", 4116
  std::uint32_t longs;      // 4
  std::uint32_t entries;    // 0
  char chunkId[4];          // of the stream: "00dc", "01wb"
  std::uint8_t room[4104];  // 0
};

struct AVI_VIDEO_STREAM {
  AVI_LIST_HEAD list;  // "LIST", "strl"
  AVI_STREAM_HEADER header;
  AVI_VIDEO_FORMAT format;
  AVI_SUPER_INDEX_ROOM superIndex;
};

struct AVI_AUDIO_STREAM {
  AVI_LIST_HEAD list;  // "LIST", "strl"
  AVI_STREAM_HEADER header;
  AVI_AUDIO_FORMAT format;
  AVI_SUPER_INDEX_ROOM superIndex;
};

// What both templates begin and end with.
struct AVI_HEADER_BEGIN {
  AVI_LIST_HEAD riff;  // "RIFF", "AVI "
  AVI_LIST_HEAD hdrl;  // "LIST", "hdrl"
  AVI_MAIN_HEADER main;
};

struct AVI_HEADER_END {
  AVI_CHUNK_HEAD extended;  // "JUNK", 260: room for the main header of very long files
  char odml[4];
  char dmlh[4];
  std::uint32_t dmlhSize;  // 248
  std::uint8_t dmlhRoom[248];
  AVI_LIST_HEAD info;       // "LIST", "INFO"
  AVI_CHUNK_HEAD software;  // "ISFT", 11
  char softwareName[12];
  AVI_CHUNK_HEAD junk;  // "JUNK", 1016
  std::uint8_t room[1016];
  AVI_LIST_HEAD movi;  // "LIST", "movi"; size 0 until the file is finished
};

// With audio and video, and with video only.
struct AVI_FILE_HEADER_AV {
  AVI_HEADER_BEGIN begin;
  AVI_VIDEO_STREAM video;
  AVI_AUDIO_STREAM audio;
  AVI_HEADER_END end;
};

struct AVI_FILE_HEADER_VIDEO {
  AVI_HEADER_BEGIN begin;
  AVI_VIDEO_STREAM video;
  AVI_HEADER_END end;
};

// Fill the whole of *header, as it stands at the begin of a file. Codecs are VideoCodec and AudioCodec; pixels,
// bits a second, frames a second, samples a second, bits a sample. A frame rate below 1 gives 0 microseconds a
// frame.
RECORD_API void init_avi_header(AVI_FILE_HEADER_AV* header, int videoType, int audioType, int width, int height,
                                int bitrate, int framerate, int samplerate, int bits, int channels);
RECORD_API void init_avi_header_video(AVI_FILE_HEADER_VIDEO* header, int videoType, int width, int height,
                                      int bitrate, int framerate);

#endif
