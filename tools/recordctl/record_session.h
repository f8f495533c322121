// A recording from its first to its last file: the embedding application in small.
#ifndef RECORDCTL_RECORD_SESSION_H
#define RECORDCTL_RECORD_SESSION_H

#include <chrono>
#include <memory>
#include <string>

#include "tools/recordctl/containers.h"
#include "tools/recordctl/media_kinds.h"
#include "tools/recordctl/options.h"
#include "tools/recordctl/progress.h"
#include "tools/recordctl/room_keeper.h"
#include "tools/recordctl/sources.h"
#include "tools/recordctl/upload_targets.h"
#include "tools/recordctl/watched_task.h"

namespace recordctl {

struct RecordRequest {
  std::string input;
  std::string sub;
  bool loop = false;
  bool noAudio = false;
  std::string containerName;
  Container container = Container::kKmv;
  std::string kindName;
  const Kind* kind = nullptr;
  int duration = 0;  // seconds, 0: until interrupted or the source ends
  int maxFile = 600;
  int pre = 0;
  int minFreeMB = 0;  // 0: nothing is deleted
  std::string streamName;
  int stream = STREAM_MAIN;
  UploadRequest uploads;
};

class RecordSession {
 public:
  RecordSession(const Options& options, const RecordRequest& request);
  ~RecordSession();
  RecordSession(const RecordSession&) = delete;
  RecordSession& operator=(const RecordSession&) = delete;

  // Exit code.
  int Run();

 private:
  using Clock = std::chrono::steady_clock;
  enum class Outcome { kWritten, kFailed };

  bool OpenSources();
  bool DescribeSource();
  bool HasRoom() const;
  bool MakeRoom();
  void FillPreRecord();
  bool KeepsBuffering(Clock::time_point until);

  bool RecordFiles();
  Outcome RecordOneFile();
  bool StartTask();
  RECORD_TASK_PARAM TaskParameters() const;
  int PlannedSeconds() const;
  int LookBackSeconds() const;
  void FollowTask();
  bool IsTaskGone() const;
  void StopTask();
  bool ShouldStop();
  bool HoldsAllOfTheSource();
  void ReleasePreRecord();
  void ShowProgress();
  Outcome Report();
  bool TryAgain();

  const Options& m_options;
  const RecordRequest& m_request;
  Sources m_sources;
  UploadTargets m_uploads;
  RECORD_TASK_PARAM m_media = {};  // of what is recorded
  Progress m_progress;
  std::unique_ptr<RoomKeeper> m_room;  // null: nothing is deleted
  std::shared_ptr<TaskWatch> m_watch;
  Clock::time_point m_begin;      // of the first file
  Clock::time_point m_fileBegin;  // of the running one
  int m_files = 0;                // reported
  int m_failures = 0;             // in a row
  bool m_done = false;            // no further file
  bool m_sourceFailed = false;
  bool m_wasCutShort = false;  // some file lost its rest to a failed write
  bool m_buffering = false;
  std::uint32_t m_fileBeginStamp = 0;  // wall clock, milliseconds modulo 2^32
  bool m_hasRecorded = false;          // m_lastStamp counts
  std::uint32_t m_lastStamp = 0;       // of the last video frame written so far
  long long m_framesSeen = 0;          // while the end of the source is awaited
  Clock::time_point m_lastGrowth;
};

}  // namespace recordctl

#endif
