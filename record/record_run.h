// One run of a record thread: one task, one file. Everything that belongs to the run lives and dies here.
#ifndef RECORD_RECORD_RUN_H
#define RECORD_RECORD_RUN_H

#include <ctime>
#include <memory>

#include "record/frame_sequence.h"
#include "record/platform.h"
#include "record/task.h"

namespace record {

// Why a file ends.
enum class EndReason {
  kNone,
  kStopped,
  kWeekday,       // a file never spans two days
  kClock,         // an elapsed time that no file can have
  kSwitchMinute,  // scheduled and manual files are cut on the wall clock
  kBudget,
  kSize,         // a time lapse has come to its size
  kFull,         // the container can hold no more
  kWriteFailed,  // a write or a sync of the file failed
  kWriter,       // the writer refused a frame
};

class RecordRun {
 public:
  explicit RecordRun(CRecordTask& task);
  ~RecordRun();
  RecordRun(const RecordRun&) = delete;
  RecordRun& operator=(const RecordRun&) = delete;

  // The whole run, up to the point at which the task may leave the registry and be deleted. False when the
  // codec configuration never came: the encoder is dead.
  bool Record();

  // --- The decisions of a pass, apart from their thread. ---
  // REQUIRES: BeginLimits.
  EndReason ShouldEnd();
  void BeginLimits();

 private:
  enum class Take { kNothing, kFrame, kFailed };

  void UseSubStreamForRam();
  bool FetchConfig();
  bool RegisterVideo();
  bool RegisterAudio();
  bool RegisterReader(int stream, const char* medium, double* lookBackMs);
  void Unregister();
  bool Begin();
  void End();

  bool DrainPreRecorded();
  Take DrainOne(const RingFrameInfo& info, unsigned char* data, int length);
  void Loop();
  EndReason Pass();
  bool TakeMinute();  // true when the minute is this task's to mark
  void StampMinute();
  EndReason TimeLimits(unsigned now);
  Take TakeVideo();
  EndReason TakeAudio();
  Take TakeOneAudio(double& timestampMs);

  bool WriteVideo(const StreamFrame& frame, bool isLive);
  bool PassVideo(const StreamFrame& frame, int length, bool isLive);
  bool WriteTimelapse(char* data, int length, double timestampMs);
  bool CallVideoWriter(int keyFrame, char* data, int length, unsigned timestampMs);
  bool WriteAudio(unsigned char* data, int length, double timestampMs);
  char* Copied(const unsigned char* data, int length);
  bool MakeMediaBuffer(int size);
  void ReadWallClock();

  bool IsTimelapse() const { return m_task.m_param.timelapse > 0; }
  bool HasVideo() const { return m_task.m_param.video_enable > 0; }
  bool HasAudio() const { return m_task.m_param.audio_enable > 0; }
  bool IsKind(int kind) const;
  bool IsUnlimited() const;  // a scheduled time lapse: neither budget nor switching

  CRecordTask& m_task;
  const bool m_hasMediaBuffer;
  std::unique_ptr<char[]> m_mediaBuffer;
  int m_mediaBufferSize = 0;
  bool m_readsVideo = false;  // registered
  bool m_readsAudio = false;
  double m_lookBackMs = 0;  // granted for video

  // Limits of the file.
  unsigned m_beginMs = 0;  // run time
  struct tm m_local = {};  // wall clock of this pass
  long long m_localSeconds = 0;
  int m_weekday = 0;
  int m_minute = 0;
  long long m_budgetMs = -1;  // -1: none
  int m_minutesForSwitch = -1;

  // Minute stamping.
  bool m_stamped = false;
  unsigned m_stampMs = 0;  // run time of the last stamping pass
  int m_minuteOfDay = 0;   // the last one that belongs to the file's day

  // Frames.
  FrameSequence m_videoSequence;
  std::int64_t m_lastDrainedVideo = -1;  // live frames up to here were written from the pre-record buffer
  std::int64_t m_lastDrainedAudio = -1;
  double m_startMs = 0;       // wall clock at the begin of the file
  double m_firstVideoMs = 0;  // time stamps, 0: none yet
  double m_lastVideoMs = 0;
  double m_lastAudioMs = 0;

  // Time lapse.
  int m_timelapseIntervalMs;  // between two frames as they play
  unsigned m_timelapseStampMs;
  int m_timelapseFrames = 0;
  double m_lastSampleMs = 0;
};

}  // namespace record

#endif
