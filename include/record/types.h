// Media and task parameter types: the plain records that cross the library's interface, and the code
// tables that every writer and reader shares.
//
// All integers are 32 bits wide and little-endian; the layouts are fixed and carry no version. Nothing in
// these headers changes its size with _FILE_OFFSET_BITS or _TIME_BITS.
#ifndef RECORD_TYPES_H
#define RECORD_TYPES_H

#include <cstddef>
#include <cstdint>

// Everything that librecord exports.
#define RECORD_API __attribute__((visibility("default")))

// RECORD_TASK_PARAM::recordtype. Codes 10 to 13 are the same four kinds again and are treated alike.
enum RecordKind : std::int32_t {
  RECORD_KIND_SCHEDULE = 1,
  RECORD_KIND_MANUAL = 2,
  RECORD_KIND_MOTION = 3,
  RECORD_KIND_ALARM = 4,
  RECORD_KIND_SECOND_SET = 9,  // added to a kind of the first set gives its twin of the second
};

// RECORD_TASK_PARAM::video_type
enum VideoCodec : std::int32_t {
  VIDEO_CODEC_MPEG4 = 0,
  VIDEO_CODEC_H264 = 1,
  VIDEO_CODEC_H265 = 2,
};

// RECORD_TASK_PARAM::audio_type; a negative value means no audio.
enum AudioCodec : std::int32_t {
  AUDIO_CODEC_NONE = -1,
  AUDIO_CODEC_G711_ULAW = 0,
  AUDIO_CODEC_AAC = 1,
  AUDIO_CODEC_G711_ALAW = 2,
  AUDIO_CODEC_PCM = 3,
};

// Stream flags of a record file, as CVideoFile::GetMeidaParam reports them. On disk, never renumber.
enum RecordStreamFlag : std::uint32_t {
  RECORD_STREAM_VIDEO = 0x0001,
  RECORD_STREAM_AUDIO = 0x0100,
};

// One recording job, as the application hands it to the constructor of a record task (copied there).
struct RECORD_TASK_PARAM {
  std::int32_t recordtype;        // RecordKind
  std::int32_t stream;            // encoder stream: 0 main, 1 sub; file names carry stream + 1
  std::int32_t video_enable;      // > 0: record video
  std::int32_t audio_enable;      // > 0: record audio; forced to 0 when audio_type is negative
  std::int32_t width;             // pixels, as the file shall tell them
  std::int32_t height;            // pixels
  std::int32_t bitrate;           // video, bits per second
  std::int32_t framerate;         // configured frames per second
  std::int32_t pre_second;        // seconds of recorded past placed ahead of the start
  std::int32_t duration;          // seconds of one file; REQUIRES: duration + pre_second >= 1
  std::int32_t max_file_seconds;  // seconds; a file ends after the shorter of this and duration
  std::int32_t local_store;       // non-zero: write to a local medium
  std::int32_t remote_store;      // non-zero: to the share; beside a local file a copy at its end
  std::int32_t video_type;        // VideoCodec
  std::int32_t audio_type;        // AudioCodec
  std::int32_t samplerate;        // audio samples per second
  std::int32_t bits;              // per audio sample
  std::int32_t channels;
  std::int32_t audio_param_a;       // configured audio frames per second
  std::int32_t audio_param_b;       // copied into the KMV head; readers report it as the audio bit rate
  std::int32_t keep_frame_tail;     // 0: the last 16 bytes of each video frame, the encoder's own, are cut off
  std::int32_t timelapse;           // > 0: sampled key frames, the file ends on its size
  std::int32_t timelapse_interval;  // seconds between two sampled frames
  std::int32_t timelapse_fps;       // playback rate: below 1 becomes 25, above 60 becomes 60
  std::int32_t timelapse_max_mb;    // size limit of a time-lapse file, units of 1048576 bytes
  std::int32_t rectype_code;        // low byte: marks the minutes in the day's type index; not 'C' (none)
};
static_assert(sizeof(RECORD_TASK_PARAM) == 104, "26 words");

// The device's recording configuration. The library reads the two switches and keeps the rest as it is.
struct RecordConfig {
  std::int32_t local_enable;      // 0: local recording is off for the whole device
  std::int32_t network_enable;    // 0: network recording is off
  std::uint8_t application[956];  // belongs to the embedding application
};
static_assert(sizeof(RecordConfig) == 964);

// Video of an open record file, filled by CVideoFile::GetMeidaParam.
struct VIDEO_PARAM {
  std::uint32_t reserved;  // 0
  char codec[32];          // NUL-terminated: "H.264", "H.265", "MPEG4"; from MP4 "H264", "H265"
  std::uint32_t width;     // pixels
  std::uint32_t height;
  std::uint32_t framerate;          // frames per second
  std::uint32_t keyframe_interval;  // frames; filled by the MP4 reader only
  std::uint32_t bitrate;            // bits per second (the MP4 reader gives a fixed 800)
  std::uint8_t config[256];         // codec configuration: parameter sets or VOL header
  std::uint32_t config_length;      // valid bytes of config, 0..256
};
static_assert(sizeof(VIDEO_PARAM) == 316);
static_assert(offsetof(VIDEO_PARAM, config) == 56 && offsetof(VIDEO_PARAM, config_length) == 312);

// Audio of an open record file.
struct AUDIO_PARAM {
  std::uint32_t reserved;  // 0
  char codec[32];          // NUL-terminated: "G.711", "AAC", "G.711A", "PCM"; MP4 "PCMU", "PCMA", "MPEG4-GENERIC"
  std::uint32_t samplerate;
  std::uint32_t bits;  // per sample
  std::uint32_t channels;
  std::uint32_t bitrate;  // KMV: audio_param_b of the task; MP4: 64000
  std::uint32_t extra;    // MP4: 8
};
static_assert(sizeof(AUDIO_PARAM) == 56 && offsetof(AUDIO_PARAM, samplerate) == 36);

// The `.info` file beside every record file: 304 bytes, little-endian, rewritten whole.
struct RecordInfoStruct {
  std::uint8_t volData[256];   // codec configuration of the file's video
  std::int32_t volLength;      // valid bytes of volData, 0..256
  std::uint32_t startSeconds;  // wall clock, since 1970
  std::uint32_t startMicroseconds;
  std::uint32_t endSeconds;
  std::uint32_t endMicroseconds;
  std::uint32_t nTimeSeconds;  // end - start, rounded to the nearest second
  std::int32_t keyFrames;      // video key frames written
  std::int32_t videoFrames;
  std::int32_t audioFrames;
  std::uint32_t videoBytes;  // payload (AVI: with each chunk's 8-byte head)
  std::uint32_t audioBytes;
  std::uint32_t totalBytes;  // all media bytes of the file
};
static_assert(sizeof(RecordInfoStruct) == 304);
static_assert(offsetof(RecordInfoStruct, startSeconds) == 260);
static_assert(offsetof(RecordInfoStruct, nTimeSeconds) == 276);
static_assert(offsetof(RecordInfoStruct, totalBytes) == 300);

#endif
