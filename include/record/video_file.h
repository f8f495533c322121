// Reading record files: one interface for every container.
//
// A reader reads one file at a time and is not shared between threads.
#ifndef RECORD_VIDEO_FILE_H
#define RECORD_VIDEO_FILE_H

#include <memory>

#include "record/types.h"

class RECORD_API CVideoFile {
 public:
  virtual ~CVideoFile();

  // 1 or more on success; below 1 the file could not be opened, or one is open already.
  virtual int Open(const char* path) = 0;
  virtual int Close() = 0;  // safe when nothing is open; the destructor calls it

  // RecordStreamFlag bits into *flags and the parameters of the streams present. Returns 0.
  virtual int GetMeidaParam(unsigned long* flags, VIDEO_PARAM* video, AUDIO_PARAM* audio) = 0;
  virtual int GetVideoFrameCount() = 0;     // KMV: the last indexed second, kept: callers rely on it
  virtual int GetVideoFramerate() = 0;      // frames per second
  virtual int GetVideoFrameInterval() = 0;  // milliseconds
  virtual int GetAudioFrameCount() = 0;
  virtual int GetTimeDuration() = 0;          // seconds
  virtual int GetKeyFrameTimeInterval() = 0;  // milliseconds, 4000 when unknown

  // Puts the reader at the frame from which that second of the file can be decoded: the indexed frame of the
  // second, or the last one before it. 0; -1 when the file is shorter or holds no such frame.
  virtual int SeekTimeOffset(unsigned long seconds) = 0;
  virtual int SeekTimeByPercent(unsigned long percent) = 0;  // MP4 only; elsewhere nothing and 0
  virtual int GetTimeOffset() = 0;                           // milliseconds

  // The next frame. Returns its length in bytes and sets *ppData; with bOwned 1 the caller frees it with
  // delete[], with 0 it points into the reader and is valid until the next call. bVideo: 1 video, 0 audio;
  // bKeyFrame: 1 key frame; nTimeStamp: milliseconds modulo 2^32. Negative: no frame (error or end; a file that
  // still grows may have one later). 0: a frame without bytes, *ppData is null.
  virtual int GetMediaFrame(unsigned char** ppData, long& bOwned, long& bVideo, long& bKeyFrame,
                            unsigned long& nTimeStamp) = 0;

  // Moves to the next / previous indexed key frame (one a second). 0, or negative.
  virtual int MoveNextKeyFrame() = 0;
  virtual int MovePrevKeyFrame() = 0;
};

// Reads KMV files, finished, growing or cut off.
class RECORD_API CKmvFile : public CVideoFile {
 public:
  CKmvFile();
  ~CKmvFile() override;

  int Open(const char* path) override;
  int Close() override;
  int GetMeidaParam(unsigned long* flags, VIDEO_PARAM* video, AUDIO_PARAM* audio) override;
  int GetVideoFrameCount() override;
  int GetVideoFramerate() override;
  int GetVideoFrameInterval() override;
  int GetAudioFrameCount() override;
  int GetTimeDuration() override;
  int GetKeyFrameTimeInterval() override;
  int SeekTimeOffset(unsigned long seconds) override;
  int SeekTimeByPercent(unsigned long percent) override;
  int GetTimeOffset() override;
  int GetMediaFrame(unsigned char** ppData, long& bOwned, long& bVideo, long& bKeyFrame,
                    unsigned long& nTimeStamp) override;
  int MoveNextKeyFrame() override;
  int MovePrevKeyFrame() override;

  // From now on frames may stay the reader's (bOwned 0, until the next call): those that lie in memory already are
  // not copied.
  void LendFrames();

  // The time stamp of the file's first packet, from which the times within the file count. False while there is
  // no packet.
  bool GetFirstTimeStamp(std::uint32_t& stamp) const;

 private:
  struct State;
  std::unique_ptr<State> m_state;
};

// Reads AVI record files, finished, growing or cut off. A file without a usable index is scanned for its chunks.
// Time stamps are made up: every video frame is one frame interval after the one before it.
//
// GetMediaFrame: -1 no file is open; -2 the end; 0 a damaged chunk, reading goes on behind it; -3 a frame of more
// than 512,000 bytes, which is passed over, see TakeLongFrames. Key frames are told by their bytes.
class RECORD_API CAviFile : public CVideoFile {
 public:
  CAviFile();
  ~CAviFile() override;

  int Open(const char* path) override;
  int Close() override;
  int GetMeidaParam(unsigned long* flags, VIDEO_PARAM* video, AUDIO_PARAM* audio) override;
  int GetVideoFrameCount() override;
  int GetVideoFramerate() override;
  int GetVideoFrameInterval() override;
  int GetAudioFrameCount() override;
  int GetTimeDuration() override;
  int GetKeyFrameTimeInterval() override;
  int SeekTimeOffset(unsigned long seconds) override;
  int SeekTimeByPercent(unsigned long percent) override;
  int GetTimeOffset() override;
  int GetMediaFrame(unsigned char** ppData, long& bOwned, long& bVideo, long& bKeyFrame,
                    unsigned long& nTimeStamp) override;
  int MoveNextKeyFrame() override;
  int MovePrevKeyFrame() override;

  // From now on frames of any length are delivered, as they were recorded. Readers of CreateVideoFile do so from
  // the begin.
  void TakeLongFrames();

  void LendFrames();  // as CKmvFile's

  // As SeekTimeOffset, but the time stamps go on as if the file had been read from its begin. 0, or -1: no such
  // second, nothing has moved.
  int SkipToSecond(unsigned long seconds);

 private:
  struct State;
  std::unique_ptr<State> m_state;
};

// Reads MP4 files through the platform's demultiplexer, finished or growing. Frames stay the reader's (bOwned 0).
// Time stamps are the demultiplexer's: they count from the begin of the file.
class RECORD_API CMp4File : public CVideoFile {
 public:
  CMp4File();
  ~CMp4File() override;

  // 1, or 0. A file that is open already is closed first.
  int Open(const char* path) override;
  int Close() override;
  int GetMeidaParam(unsigned long* flags, VIDEO_PARAM* video, AUDIO_PARAM* audio) override;
  int GetVideoFrameCount() override;     // both counts: 1000, whatever the file holds; kept, callers rely on it
  int GetVideoFramerate() override;      // of a growing file a rough guess, see GetTimeDuration
  int GetVideoFrameInterval() override;  // frames between two key frames
  int GetAudioFrameCount() override;
  int GetTimeDuration() override;  // while the file is being recorded: from its begin until it was opened
  int GetKeyFrameTimeInterval() override;
  int SeekTimeOffset(unsigned long seconds) override;
  int SeekTimeByPercent(unsigned long percent) override;
  int GetTimeOffset() override;  // 0
  int GetMediaFrame(unsigned char** ppData, long& bOwned, long& bVideo, long& bKeyFrame,
                    unsigned long& nTimeStamp) override;
  int MoveNextKeyFrame() override;
  int MovePrevKeyFrame() override;  // does nothing

 private:
  struct State;
  std::unique_ptr<State> m_state;
};

// 1 when an H.264 frame that begins with a four-byte start code is a key frame, as far as its first unit tells: a
// parameter set, an IDR slice, or the slice of a picture that is all intra. Else 0.
RECORD_API int IsH264KeyFrame(const unsigned char* data, int length);

// The reader for a file, chosen by the name alone: ".kmv", else ".mp4", else ".avi" anywhere in it (all lower or
// all upper case). Null with a log line for any other name. The file is not touched. An AVI reader made here takes
// long frames.
RECORD_API std::unique_ptr<CVideoFile> CreateVideoFile(const char* path);

#endif
