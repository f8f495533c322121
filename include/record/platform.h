// The seam to the device: everything that librecord imports.
//
// A device maker implements the functions and the class of this header and links them beside the library;
// librecord-host is such an implementation for any Linux machine. No function may throw. Unless a contract
// says otherwise a function may be called from any thread, at any time, and returns 0 (or a non-negative
// value) for success and a negative value for failure; strings are NUL-terminated and owned by the caller.
// Paths are those of the machine, with the device root (SetDeviceRoot, storage.h) already in front.
#ifndef RECORD_PLATFORM_H
#define RECORD_PLATFORM_H

#include <cstddef>
#include <cstdint>
#include <ctime>

#define RECORD_PLATFORM __attribute__((visibility("default")))

// ---------------------------------------------------------------------------------------------- mutex

// A mutex that remembers where and when it was locked, so that a watchdog can name a writer that hangs.
// Not recursive.
class RECORD_PLATFORM CMutex {
 public:
  CMutex();
  ~CMutex();
  CMutex(const CMutex&) = delete;
  CMutex& operator=(const CMutex&) = delete;

  // Blocks until the mutex is held. `line` is the source line of the caller. Returns 0.
  int Lock(unsigned int line);
  // Releases the mutex. A call by a thread that does not hold it has no effect (returns -1).
  int Unlock();
  int UnLock();  // the same under its older spelling

  // 1 when the mutex has been held, by anyone, for more than `milliseconds` (run time), else 0.
  int IsLockedExeedtime(unsigned int milliseconds);
  // The line given to the Lock that holds the mutex now; 0 when it is free.
  unsigned int GetLockedLine();
  // Milliseconds for which the mutex has been held; 0 when it is free.
  unsigned int GetLockedTime();

 private:
  void* m_impl;  // the platform's own
};

extern "C" {

// -------------------------------------------------------------------------------------------- logging

// Writes one diagnostic. The library's formats begin with "[%s:%u]" (function and line) and carry their own
// line ends. Module 8, level 7 is the rule; module 1 marks starts and stops. Must be cheap when the line is
// not wanted: it is called on hot paths.
RECORD_PLATFORM void DebugPrint(int module, int level, const char* format, ...)
    __attribute__((format(printf, 3, 4)));

// ------------------------------------------------------------------------------------- stream service

enum StreamCommand : int {
  STREAM_REGISTER = 2,
  STREAM_UNREGISTER = 3,
  STREAM_GET_CONFIG = 4,
  STREAM_READ = 6,
  STREAM_RELEASE = 7,
};

enum StreamNumber : int {
  STREAM_MAIN = 0,
  STREAM_SUB = 1,
  STREAM_AUDIO = 2,  // audio is always read as this stream
};

// One encoded frame (STREAM_READ) or a stream's codec configuration (STREAM_GET_CONFIG).
//
// H.264 and H.265 frames are Annex B access units, key frames carry their parameter sets in front; AAC
// frames carry an ADTS head; G.711 and PCM are raw.
struct StreamFrame {
  unsigned char* data;         // owned by the service
  int length;                  // bytes
  int keyFrame;                // non-zero: key frame
  double timestampMs;          // wall clock, milliseconds since 1970; never runs backwards within a stream
  std::int64_t keyframeIndex;  // number of the group of pictures within the stream (audio: 0)
  std::int64_t frameIndex;     // number of the frame within the stream; a gap tells of lost frames
};

// The stream service. `readerId` tells the readers of a stream apart (one id may read several streams at once,
// video and audio); one reader is used by one thread at a time.
//
//   STREAM_REGISTER    `arg` double*: in the wanted look-back in ms, out the look-back granted. The reader
//                      stands at the newest key frame that is at least that old, or else at the oldest key
//                      frame held (audio: the same by frames). 0, or negative when the stream is not there.
//   STREAM_UNREGISTER  `arg` null. Drops the reader and a frame it has not released.
//   STREAM_GET_CONFIG  `arg` StreamFrame*: data and length of the codec configuration (Annex B parameter
//                      sets, or the MPEG-4 VOL header), valid until the reader calls again. 0, or negative
//                      while it is not known. Needs no registration.
//   STREAM_READ        `arg` StreamFrame*: the next frame. Positive: a frame, valid until it is released,
//                      whatever the producer does meanwhile. 0: none yet. Negative: error.
//   STREAM_RELEASE     `arg` null: releases the frame last read.
//
// Never blocks longer than a lock is held. A reader that falls behind is moved on to a key frame and sees
// the jump in frameIndex.
RECORD_PLATFORM int GetStreamData(int command, int stream, std::uintptr_t readerId, void* arg);

// Asks the encoder of `stream` for a key frame as soon as it can.
RECORD_PLATFORM int SetForceIdr(int stream);

// ------------------------------------------------------------------------------------------- pictures

struct JpegPicture {
  const unsigned char* data;
  int length;  // bytes
};

// Takes a JPEG picture of video stream `stream` as it is now, scaled to `width` x `height` pixels (0 and 0: as the
// stream has them), with `quality` 1 to 100 (0: the platform's choice). 0 fills `picture`; its data belong to the
// platform and stay valid until the same thread takes another one or ends. Negative: there is no picture. May take
// as long as a picture takes; must not wait for a stream that is not there.
RECORD_PLATFORM int TakeJpegPicture(int stream, int width, int height, int quality, JpegPicture* picture);

// ---------------------------------------------------------------------------------------- frame rings

// What a ring keeps beside each frame, 24 bytes.
struct RingFrameInfo {
  std::int32_t type;            // RingFrameType
  std::uint32_t keyframeIndex;  // StreamFrame::keyframeIndex modulo 2^32
  double timestampMs;           // as in StreamFrame
  std::int64_t frameIndex;      // as in StreamFrame
};
static_assert(sizeof(RingFrameInfo) == 24);

enum RingFrameType : std::int32_t {
  RING_FRAME_VIDEO = 0,
  RING_FRAME_KEY = 2,
  RING_FRAME_AUDIO = 3,
};

// A ring of frames for one writing and one reading thread. Init: room for `bytes` of frame data and
// `maxFrames` frames; null on failure.
RECORD_PLATFORM void* OsalRingInit(int bytes, int maxFrames);
// Appends a copy of the frame, overwriting the oldest frames when the ring is full. -1 when the frame can
// never fit.
RECORD_PLATFORM int OsalRingWrite(void* ring, const RingFrameInfo* info, const unsigned char* data, int length);
// Takes the oldest frame out: its bytes, valid until the next OsalRingRead or the release of the ring
// whatever is written meanwhile; null (with *length 0) when the ring is empty.
RECORD_PLATFORM unsigned char* OsalRingRead(void* ring, int* length, RingFrameInfo* info);
// Looks at the oldest frame's description without taking it. -1 when the ring is empty.
RECORD_PLATFORM int OsalRingGetFrameInfo(void* ring, RingFrameInfo* info);
RECORD_PLATFORM void OsalRingRelease(void* ring);

// ------------------------------------------------------------------------- configuration and identity

struct MediaConfig {
  unsigned char encoder[660];  // the device's own
  char deviceName[200];        // need not be NUL-terminated; a '^' ends the part that is shown
  unsigned char rest[1492];
};
static_assert(sizeof(MediaConfig) == 2352 && offsetof(MediaConfig, deviceName) == 660);

// Fills the media configuration. Non-zero is failure.
RECORD_PLATFORM int MsgGetMediaConfig(MediaConfig* config);
// The device's serial number into `serial` (`size` bytes, always terminated).
RECORD_PLATFORM int GetSN(char* serial, int size);

// -------------------------------------------------------------------------------------------- storage

// Non-zero when a medium is mounted at `root`.
RECORD_PLATFORM int DRIVER_isDeviceMounted(const char* root);
// Free space of medium 0..3 (first card, second card, USB, network share) in MB of 1048576 bytes; negative when it
// cannot be told.
RECORD_PLATFORM int GetStorageFreeSpace(int medium);
// Used part of that medium, 0..100.
RECORD_PLATFORM double GetStorageUsedPercentage(int medium);
// Creates one directory unless it is there; its parent exists.
RECORD_PLATFORM int SafeMakeDir(const char* path);
// Non-zero when `path` exists.
RECORD_PLATFORM int FileExist(const char* path);
// The remembered size of `directory` in KiB; 0 or negative when none is remembered.
RECORD_PLATFORM int LoadDirSpaceFromCache(const char* directory);
RECORD_PLATFORM int SaveDirSpaceToCache(const char* directory, int kib);

// --------------------------------------------------------------------------------------- record index

struct REPLAY_QUERY_CONDITION {
  std::int32_t channel;  // -1: all
  struct tm begin;       // local time, both ends inclusive
  struct tm end;
  std::int32_t filter[4];  // -1: no filter
};

struct REPLAY_QUERY_RESULT {
  char szRootPath[48];        // on the device, without the device root: "/mnt/mmc0/schedule"
  char szFileName[56];        // relative to it: "20240131/081500-av-1.kmv"
  REPLAY_QUERY_RESULT* next;  // null at the end
};
#if defined(__arm__)
static_assert(sizeof(REPLAY_QUERY_CONDITION) == 108 && sizeof(REPLAY_QUERY_RESULT) == 108);
#endif

// The record files of the span, newest first, or null when there are none. The list belongs to the
// platform and stays valid until the same thread queries again.
RECORD_PLATFORM REPLAY_QUERY_RESULT* QueryRecordFile(const REPLAY_QUERY_CONDITION* condition);

// ----------------------------------------------------------------------------------------------- time

// Milliseconds of a clock that no setting of the wall clock moves; the first wraps modulo 2^32.
RECORD_PLATFORM unsigned int GetCurrentTimeStamp(void);
RECORD_PLATFORM unsigned long long GetCurrentTimeStamp_u64(void);
// Time since the device was started: seconds and microseconds (0..999999).
RECORD_PLATFORM void SystemGetTimeofRun(unsigned int* seconds, unsigned int* microseconds);
// end - start in milliseconds, truncated.
RECORD_PLATFORM long long timeval_differ(unsigned int endSeconds, unsigned int endMicroseconds,
                                         unsigned int startSeconds, unsigned int startMicroseconds);
// Seconds since 1970 of a local time. `zone` is passed as 720 and is the platform's own.
RECORD_PLATFORM long long zq_mktime(int year, int month, int day, int hour, int minute, int second, int zone);

// -------------------------------------------------------------------- MP4 multiplexer and demultiplexer

struct Emp4VideoParams {
  std::int32_t codec;  // VideoCodec: 1 H.264, 2 H.265
  std::int32_t width;  // pixels
  std::int32_t height;
  std::int32_t framerate;          // frames per second
  std::int32_t keyframe_interval;  // frames
  std::int32_t config_length;      // demultiplexer: valid bytes of config, 0 when they do not fit
  std::uint8_t config[128];        // demultiplexer: Annex B parameter sets
};
static_assert(sizeof(Emp4VideoParams) == 152);

struct Emp4AudioParams {
  std::int32_t enabled;
  std::int32_t codec;              // 10 AAC, 11 G.711 u-law, 12 G.711 A-law
  std::int32_t samples_per_frame;  // per channel; nominal: a frame of G.711 lasts as long as it has bytes
  std::int32_t samplerate;
  std::int32_t channels;
  std::uint8_t reserved[132];
};
static_assert(sizeof(Emp4AudioParams) == 152);

struct Emp4ExtraParams {
  std::int32_t duration;        // seconds: the allowance (multiplexer), the length (demultiplexer)
  std::uint32_t creation_time;  // seconds since 1904-01-01 (ISO 14496-12, 8.2.2)
};

// The multiplexer.
//
// Opens an MP4 file for writing, over whatever stands there; null, with errno set, on failure. `video` and `extra`
// are read during the call only; `audio` may be null or not enabled. The allowance bounds what is taken for a gap
// in the recording: a time stamp that is further ahead tells of a clock that was set. One handle is used by one
// thread. The file may be open for reading elsewhere meanwhile, and be synced by others.
RECORD_PLATFORM void* Emp4MuxerOpen(const char* path, const Emp4VideoParams* video, const Emp4AudioParams* audio,
                                    const Emp4ExtraParams* extra);
// Appends an access unit as the stream service hands it out. The first one that is accepted is a key frame with
// its parameter sets, and these configure the file; sets that change later are kept in the frames. Everything in a
// frame is kept, in its order; only start codes (four bytes) may be replaced by lengths. The data is copied or
// written before the call returns.
//
// `timestampMs` is modulo 2^32. The first frame of a file, of whichever medium, is at time 0, and both media count
// from there. Stamps may step back, jump or wrap: times in the file go up all the same.
//
// 0: accepted. Negative: this frame is not in the file; others may be.
RECORD_PLATFORM int Emp4MuxerWriteVideoNALU(void* muxer, int keyFrame, const unsigned char* data, int length,
                                            unsigned int timestampMs);
// Appends one frame of sound: AAC with its ADTS head, or G.711 bytes (as long as they are, whatever
// samples_per_frame says). Sound that comes before the first picture waits for it, for ten seconds at least.
RECORD_PLATFORM int Emp4MuxerWriteAudio(void* muxer, const unsigned char* data, int length,
                                        unsigned int timestampMs);
// Called after every accepted frame, so it must cost next to nothing but where a group of pictures ends. When it
// returns 0, all groups in front of the last key frame are handed to the system: a reader of the file finds them,
// and a process that is killed at any moment leaves them in a file that can be played. It need not sync: the
// library does, from a thread of its own. Negative: a group could not be written; told once a group. The handle
// stays usable.
RECORD_PLATFORM int Emp4MuxerCommit(void* muxer);
// Writes what is not written yet, makes the file an ordinary one (not fragmented, seekable, with its length),
// syncs it and frees the handle. A power cut meanwhile, or a full medium, leaves the file as it was before. errno
// tells callers that set it to 0 before whether something did not reach the file or the medium, and why.
RECORD_PLATFORM void Emp4MuxerClose(void* muxer);

// The demultiplexer.
//
// Opens an MP4 file (finished or growing) and fills the three records; null on failure. A file is refused when it
// has no track of H.264 or H.265; sound that is neither AAC nor G.711 is left out. One handle is used by one
// thread.
RECORD_PLATFORM void* Emp4DemuxerOpen(const char* path, Emp4VideoParams* video, Emp4AudioParams* audio,
                                      Emp4ExtraParams* extra);
// The next frame in file order: its length, or negative at the end or on error. *data is valid until the next read
// with this handle, or its end: seeks leave it as it is, a frame may be on show meanwhile. *frameType is 0 for
// video, else 1. Frames are as the stream service had them: Annex B with four-byte start codes, parameter sets in
// front of key frames (once), AAC with an ADTS head. *timestampMs is when the frame is shown, counted from the
// begin of the file. At the end of a file that grows, a later call delivers what was committed meanwhile.
RECORD_PLATFORM int Emp4DemuxerReadFrame(void* demuxer, unsigned char** data, int* frameType, int* keyFrame,
                                         unsigned int* timestampMs);
// Reading goes on with the last key frame at or before that time (the first one when there is none before),
// together with the sound of that time. Beyond the end: the last key frame. 0, or an error code.
RECORD_PLATFORM int Emp4DemuxerSeek(void* demuxer, unsigned int milliseconds);
RECORD_PLATFORM int Emp4DemuxerSeekByPercent(void* demuxer, unsigned int percent);  // of the length; 0 to 100
// To the next key frame behind the frame that was read last, or behind the one that a seek has gone to. An error
// code, and the place stays, when there is none (yet).
RECORD_PLATFORM int Emp4DemuxerSeekToNextKey(void* demuxer);
RECORD_PLATFORM void Emp4DemuxerClose(void* demuxer);  // null is allowed, as for the multiplexer

// ------------------------------------------------------------------------------------ alarms and system

struct AlarmTime {  // local time
  int year;
  int month;  // 1..12
  int day;
  int hour;
  int minute;
  int second;
};

enum AlarmCode : int {
  ALARM_RECORD_BEGIN = 18,  // text: path of the file that is begun
  ALARM_RECORD_END = 19,    // text: path of the file that was finished
  ALARM_NO_STORAGE = 20,    // text: the task's log prefix
};

RECORD_PLATFORM int AuxMsgReportAlarm(const AlarmTime* time, int code, int arg1, int arg2, const char* text);
RECORD_PLATFORM int MsgNotifyAlarm(int code, int arg1, int arg2, const char* text);
// Restarts the device. May return (the library goes on to end its thread).
RECORD_PLATFORM void MsgSystemReboot(void);
// Adds an entry of `type` to the device's alarm log.
RECORD_PLATFORM int add_by_multiparams(unsigned int channel, int type);

// --------------------------------------------------------------------------------------------- uploads

// How a server is spoken to: FtpServer::flags, SmtpServerList::flags.
enum UploadFlag : std::int32_t {
  UPLOAD_TLS = 1,           // plain at first, then TLS before anything is told (AUTH TLS, STARTTLS); or nothing
  UPLOAD_TLS_IMPLICIT = 2,  // TLS from the first byte
  UPLOAD_UNVERIFIED = 4,    // TLS with whatever certificate the server shows
};

// Where finished files are sent. The library hands these on and reads the base directory only. Strings are
// NUL-terminated.
struct FtpServer {
  char baseDirectory[256];  // with '/' in front: from the server's root, else from where the login leads
  char host[256];
  std::int32_t port;  // 0: the usual one
  char user[64];
  char password[256];  // how the password is told is the platform's own
  std::int32_t flags;  // UploadFlag
};

struct SmtpServerList {
  char host[256];
  std::int32_t port;  // 0: the usual one
  char user[64];      // "": no login
  char password[256];
  char sender[128];
  char recipients[512];  // separated by commas
  std::int32_t flags;    // UploadFlag
};

// Positive when a file would be taken for upload now, else 0.
RECORD_PLATFORM int CanFtpFile(FtpServer* server);
RECORD_PLATFORM int CanEmailFile(SmtpServerList* servers);
// Takes `directory`/`name` for upload as `remoteDirectory`/`remoteName`, or as the attachment of a mail with
// `text`. Called by the thread that wrote the file: may queue, must not block for long. The server record is only
// read during the call. Negative: not taken.
RECORD_PLATFORM int FtpOneFile(FtpServer* server, const char* directory, const char* name,
                               const char* remoteDirectory, const char* remoteName);
RECORD_PLATFORM int EmailOneFile(SmtpServerList* servers, int flags, const char* directory, const char* name,
                                 const char* text);

// ----------------------------------------------------------------------------------------------- shell

// Runs a shell line. A line that ends in '&' returns at once. The library never puts a name that it found
// on a medium into one.
RECORD_PLATFORM int mysystem(const char* command);
RECORD_PLATFORM int mysystem_with_param(const char* format, ...) __attribute__((format(printf, 1, 2)));

}  // extern "C"

#endif
