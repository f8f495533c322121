// librecord-host: the device platform for any Linux machine, as an application sees it.
//
// The library itself asks only for what record/platform.h declares; the functions here belong to the program
// around it: which cameras feed the streams, where diagnostics go, who hears of alarms. Unless a contract says
// otherwise a function may be called from any thread and returns 0 for success and -1 for failure; strings are
// NUL-terminated and copied. Nothing throws.
#ifndef RECORD_HOST_HOST_H
#define RECORD_HOST_HOST_H

#include <cstdint>

#include "record/platform.h"
#include "record/types.h"

#define RECORD_HOST_API __attribute__((visibility("default")))

extern "C" {

// -------------------------------------------------------------------------------------------- logging

// Diagnostics up to and including `level` go to stderr, one write a line; -1 (the default) writes none. The
// library's lines have level 7.
RECORD_HOST_API void HostLogLevel(int level);

// ------------------------------------------------------------------------------------------- identity

// The serial number (1..24 letters, digits, '-', '_' or '.', not beginning with '.': it names a directory on
// the network share) and the device name (up to 200 bytes). Null leaves what is there. The default serial is
// made from /etc/machine-id, the default name is "librecord". -1: not acceptable, nothing was changed.
RECORD_HOST_API int HostSetIdentity(const char* serial, const char* deviceName);

// -------------------------------------------------------------------------------------------- alarms

enum HostAlarmKind : int {
  HOST_ALARM_REPORT = 0,  // AuxMsgReportAlarm
  HOST_ALARM_NOTIFY = 1,  // MsgNotifyAlarm
  HOST_ALARM_LOG = 2,     // add_by_multiparams: arg1 is the channel, code the type
  HOST_ALARM_REBOOT = 3,  // MsgSystemReboot
  HOST_ALARM_UPLOAD = 4,  // code HostUploadOutcome, arg1 attempts so far, arg2 seconds until the next one
};

struct HostAlarm {
  int kind;        // HostAlarmKind
  AlarmTime time;  // local
  int code;        // AlarmCode, HostUploadOutcome; 0 for a reboot
  int arg1;
  int arg2;
  const char* text;  // valid during the call, never null
};

typedef void (*HostAlarmCallback)(void* context, const HostAlarm* alarm);

// Calls `callback` for every alarm from now on, on the thread that raised it and one at a time: it should
// return soon. It may subscribe and unsubscribe. Returns an id above 0.
RECORD_HOST_API int HostAlarmSubscribe(HostAlarmCallback callback, void* context);
// After its return the callback is not running and is not called again (unless the caller is the callback).
RECORD_HOST_API int HostAlarmUnsubscribe(int id);

// The file to which every alarm is appended as one JSON object a line; "" writes none. Until this is called
// it is /tmp/alarms.jsonl below the device root, and none when no device root is set.
RECORD_HOST_API int HostAlarmSetLog(const char* path);

// A host never restarts the machine: MsgSystemReboot raises an alarm and calls this hook (null: none).
RECORD_HOST_API void HostSetRebootHook(void (*hook)(void* context), void* context);

// ----------------------------------------------------------------- streams: feeding the hub by oneself
//
// Streams 0 (main) and 1 (sub) and 3..7 carry video, 2 carries audio. Each has one producer thread at a time
// and any number of readers (GetStreamData). A stream is there for readers once it has a configuration.

// Sets the codec configuration (Annex B parameter sets, MPEG-4 VOL header, AudioSpecificConfig) and so makes
// the stream be there. With length 0 it is there without one (G.711, PCM).
RECORD_HOST_API int HostStreamSetConfig(int stream, const unsigned char* data, int length);

// Appends a copy of an encoded frame in the form that StreamFrame describes. `timestampMs` is wall clock; one
// that steps back is lifted to its predecessor's. `lost` is how many frames the caller knows to be missing
// before this one. Frame and group numbers are the hub's: a loss leaves a gap, and video begins, and goes on
// after a loss, with a key frame (others are dropped and counted as lost). Returns 1 when readers get the
// frame, 0 when it was dropped, -1 when stream, data or length make no sense or memory is short.
RECORD_HOST_API int HostStreamPublish(int stream, const unsigned char* data, int length, int keyFrame,
                                      double timestampMs, int lost);

// How much of its past a stream keeps: whole groups of pictures reaching back at least `seconds`, but never
// more than `bytes` (default 16 s, 32 MiB). Both above 0.
RECORD_HOST_API int HostStreamSetLookBack(int stream, double seconds, std::int64_t bytes);

// Forgets the stream's frames and configuration. Readers stay registered, a frame that one has not released
// stays valid; what is published later comes after a gap, and not before it in time unless nobody reads.
RECORD_HOST_API int HostStreamClear(int stream);

// Called for every SetForceIdr, on the calling thread: the place to ask an encoder for a key frame.
RECORD_HOST_API void HostSetKeyFrameHook(void (*hook)(void* context, int stream), void* context);
// How often SetForceIdr was called for `stream` so far.
RECORD_HOST_API std::int64_t HostKeyFrameRequests(int stream);

// -------------------------------------------------------------------- streams: cameras and files as sources

struct HostStreamOptions {
  int loop;              // non-zero: a file starts again at its end, without a gap
  int noAudio;           // non-zero: leave the source's audio alone
  int unpaced;           // non-zero: a file is read as fast as it goes instead of at its own pace
  int openTimeoutMs;     // per attempt to connect; 0: 10000
  int silenceTimeoutMs;  // a live source that sends nothing for so long counts as lost; 0: 10000
  int noReconnect;       // non-zero: a live source that is lost fails for good
  // The wall clock in milliseconds since 1970, for frame time stamps; null: the system's.
  double (*wallClockMs)(void* context);
  void* clockContext;
};

enum HostStreamState : int {
  HOST_STREAM_CLOSED = 0,      // not open
  HOST_STREAM_CONNECTING = 1,  // first attempt, or the connection was lost and is sought again
  HOST_STREAM_LIVE = 2,        // frames flow
  HOST_STREAM_ENDED = 3,       // a file that does not loop has been read to its end
  HOST_STREAM_FAILED = 4,      // given up; `error` says why
};

struct HostStreamInfoRecord {
  int state;  // HostStreamState
  // The rest is known once the state has been LIVE.
  int videoCodec;  // VideoCodec, -1 unknown
  int width;       // pixels
  int height;
  int framerate;             // frames per second, rounded; 0 unknown
  int bitrate;               // video, bits per second; 0 unknown
  int audioCodec;            // AudioCodec; -1: none
  int samplerate;            // audio samples per second
  int channels;              // audio
  int bits;                  // per audio sample
  int audioFramesPerSecond;  // rounded; 0 until a frame has been seen
  std::int64_t videoFrames;  // published so far
  std::int64_t audioFrames;
  std::int64_t reconnects;  // connections made after the first
  char error[256];          // the last failure, "" when there was none
};

// Feeds `stream` (0 main or 1 sub) from anything that libavformat opens: rtsp://..., a file. Video goes to
// the stream itself; the audio of the source opened as stream 0 goes to stream 2. H.264, H.265 and MPEG-4
// video; G.711, 16-bit PCM and AAC audio (other audio is left out with a log line and a text in `error`).
//
// Blocks until the source is open and understood, at most the opening time-out. -1: it could not be opened;
// HostStreamInfo gives the reason and nothing is left open. A live source that goes away later is sought
// again with pauses of 0.25 s to 8 s. Switches libavformat's own messages off (they show passwords).
RECORD_HOST_API int HostStreamOpen(int stream, const char* url);
RECORD_HOST_API int HostStreamOpenWith(int stream, const char* url, const HostStreamOptions* options);
// Stops and joins the source's thread and clears the streams that it fed. Not from a callback of the source.
RECORD_HOST_API int HostStreamClose(int stream);
// -1 when `stream` is not one that can be opened.
RECORD_HOST_API int HostStreamInfo(int stream, HostStreamInfoRecord* info);

// --------------------------------------------------------------------------------------------- uploads
//
// What FtpOneFile and EmailOneFile take goes into a queue on disk and is sent from there by a thread a service
// (FTP, e-mail), now or after a restart, again and again with growing pauses until it is there. At the server a
// file has a temporary name until it is whole. A file that is gone when its turn comes is given up, one that grows
// while it is sent is sent again, one that the server refuses for good (an answer from 500 on, but for logins and
// full disks) is given up at the third time. Every outcome raises an alarm of kind HOST_ALARM_UPLOAD.
//
// Passwords: FtpServer::password and SmtpServerList::password say where the password is, not what it is:
// "file:/path" (its first line) or "env:NAME", "" for none. It is read for every attempt, and stands in no file of
// the queue, no message and no command line. Anything else in that field is refused.
//
// Certificates are verified, unless UPLOAD_UNVERIFIED says otherwise for that server.

enum HostUploadOutcome : int {
  HOST_UPLOAD_DONE = 1,
  HOST_UPLOAD_RETRY = 2,     // failed, and tried again later
  HOST_UPLOAD_GIVEN_UP = 3,  // failed for good
  HOST_UPLOAD_REFUSED = 4,   // did not come into the queue, or CanFtpFile or CanEmailFile said no
};

struct HostUploadOptions {
  const char* directory;  // of the queue; null: /var/lib/librecord/uploads below the device root
  const char* caFile;     // certificates to trust, PEM; null: the system's
  int limit;              // uploads that wait, a service; 0: 200
  int firstRetryMs;       // pause before the second attempt, doubled for every further one; 0: 10 s
  int lastRetryMs;        // longest pause; 0: 10 minutes
  int giveUpSeconds;      // after so long, and ten attempts, an upload is given up; 0: three days
  int connectTimeoutMs;   // 0: 10 s
  int silenceTimeoutMs;   // a server that takes or says nothing for so long is given up; 0: 30 s
};

// Takes effect for the next start of the threads (HostUploadStop ends them).
RECORD_HOST_API int HostUploadConfigure(const HostUploadOptions* options);

// Starts the threads, for what waits from earlier. FtpOneFile and EmailOneFile do it by themselves.
RECORD_HOST_API int HostUploadStart(void);
// Breaks off what is being sent and joins the threads; what waits stays in the queue. Done at exit, too.
RECORD_HOST_API void HostUploadStop(void);
// Everything that waits is due now.
RECORD_HOST_API int HostUploadRetryNow(void);

enum HostUploadState : int {
  HOST_UPLOAD_DUE = 0,      // waits for its turn, or is being sent
  HOST_UPLOAD_WAITING = 1,  // for its next attempt, or for its server
  HOST_UPLOAD_SENT = 2,
  HOST_UPLOAD_FAILED = 3,  // given up
};

struct HostUpload {
  int state;              // HostUploadState
  const char* path;       // of the local file
  const char* target;     // where it goes, without any password
  int attempts;           // that failed
  std::int64_t queuedMs;  // wall clock, milliseconds since 1970
  std::int64_t nextMs;    // of the next attempt (WAITING), of the end (SENT, FAILED)
  const char* error;      // of the last attempt that failed, "" when there was none
};

// Calls `visit` for what waits, oldest first, and for the last hundred of each service that ended. The texts are
// valid during the call. -1 when the queue cannot be read.
RECORD_HOST_API int HostUploadList(void (*visit)(void* context, const HostUpload* upload), void* context);

}  // extern "C"

#endif
