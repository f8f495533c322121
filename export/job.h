// One export: the walk over the day's files that both kinds share. What differs are the clip that is written and
// how frames are chosen from a file.
#ifndef EXPORT_JOB_H
#define EXPORT_JOB_H

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "base/worker_thread.h"
#include "export/clip_writer.h"
#include "format/media_file.h"
#include "record/catalogue.h"
#include "record/export.h"

namespace record {

// A part of one local day; seconds of the day.
struct ExportPiece {
  int year;
  int month;
  int day;
  unsigned begin;
  unsigned end;
  bool takesLastFile = false;  // also one that begins within the last second
  unsigned firstFile = 0;      // files that begin before that second are passed over
};

// Whether the clip can take a frame.
using FrameCheck = std::function<bool(const MediaFrame& frame, const ClipWriter& clip)>;

struct ExportRequest {
  int id = 0;
  std::vector<ExportPiece> pieces;  // in order of time
  std::string output;
  ExportCallback done = nullptr;
  // Frames that it refuses are left out, where else a failed write would end the export. None: all are taken.
  FrameCheck isWhole = nullptr;
};

// A record file that overlaps the piece at hand.
struct ExportSource {
  std::string path;
  const ExportPiece* piece;
  unsigned startSecond;  // of the day, by its name
  long long startMs;     // the same moment, milliseconds since 1970
  unsigned seconds;      // its length, by the catalogue

  unsigned SecondOf(const MediaFrame& frame) const { return startSecond + frame.offsetMs / 1000; }  // of the day
};

struct LeftOutFrames {
  unsigned long damaged = 0;
  unsigned long leaning = 0;  // on them: whole pictures up to the next key frame
};

class ExportJob {
 public:
  ExportJob(const ExportRequest& request, std::unique_ptr<ClipWriter> clip);
  virtual ~ExportJob() = default;
  ExportJob(const ExportJob&) = delete;
  ExportJob& operator=(const ExportJob&) = delete;

  void SetProgressHook(ExportProgressHook hook, void* context);
  // Once. Runs the export on a thread of that name, which holds `self`, this very job. 0, or -1.
  int Start(const char* threadName, const std::shared_ptr<ExportJob>& self);
  // Whoever clears the running flag owns the thread: this call, which then waits for its end (not on the thread
  // itself), or the natural end, after which nobody needs to wait.
  void Stop();
  void ThreadBody(const char* threadName);

  // The whole export, on the calling thread. 0, or -1.
  int Handle();
  const ExportProgress& Progress() const { return m_progress; }  // of the thread that runs Handle
  ClipWriter& Clip() const { return *m_clip; }
  // Once it has ended; behind a change of the pictures: what there is from the file on that has other ones.
  const LeftOutFrames& LeftOut() const { return m_leftOut; }
  std::vector<ExportPiece> Rest() const;

 protected:
  enum class Walk { kGoOn, kEnd };

  // The frames of one file, while the export runs.
  virtual Walk CopyFrames(const ExportSource& source, MediaFile& file) = 0;
  virtual void LogFile(int number, const std::string& path, int spentMs) const = 0;
  virtual void TakeFileParams(const VIDEO_PARAM&, const AUDIO_PARAM&) {}

  bool IsRunning() const { return m_running; }
  void EndAs(ExportState state) { m_progress.state = state; }
  Walk Write(const ClipFrame& frame);
  // Whether the frame must not be written: damaged, or it leans on a picture that was.
  bool LeaveOut(const MediaFrame& frame);
  // The time of the picture written last, and how far the walk has come.
  void ShowPicture(long long timeMs);
  void ShowSecond(const ExportSource& source, unsigned second);

  const ExportRequest m_request;

 private:
  int Run();
  int RunPieces();
  int FinishClip();
  int RunPiece(const ExportPiece& piece, DayRecordMap& map);
  Walk WalkFiles(const ExportPiece& piece, const DayRecordMap& map);
  Walk TakeFile(const ExportPiece& piece, const RecordFileInfo& entry);
  bool Overlaps(const ExportPiece& piece, const RecordFileInfo& entry, const std::string& path) const;
  Walk TakeParams(const std::string& path, const VIDEO_PARAM& video, const AUDIO_PARAM& audio);
  void Show();
  void FinishProgress(int result);

  const std::unique_ptr<ClipWriter> m_clip;
  std::atomic<bool> m_running{false};
  WorkerThread m_thread;
  ExportProgressHook m_hook = nullptr;
  void* m_hookContext = nullptr;

  // Of the running export.
  ExportProgress m_progress = {};
  unsigned m_pastSeconds = 0;  // of the pieces before the one at hand
  int m_fileNumber = 0;
  unsigned m_listed = 0;
  unsigned m_fileBegan = 0;  // GetCurrentTimeStamp
  LeftOutFrames m_leftOut;
  bool m_needsKey = false;  // a picture was left out
  const ExportPiece* m_changedIn = nullptr;
  unsigned m_changedFile = 0;  // its start second
};

}  // namespace record

#endif
