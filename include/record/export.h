// Exports: a span of a day copied into one MP4 file, and a day condensed into a time lapse.
//
// An export runs on a thread of its own. It may be destroyed at any time once Stop has returned; a completion
// callback may still come then when the export had ended by itself meanwhile. Stop may be called from any thread,
// the callbacks included.
#ifndef RECORD_EXPORT_H
#define RECORD_EXPORT_H

#include <memory>
#include <string>

#include "record/types.h"

// Local time of day. 24:00:00 is the end of the day; so is an end of 00:00:00.
struct DayTimeSpan {
  unsigned char beginHour;
  unsigned char beginMinute;
  unsigned char beginSecond;
  unsigned char endHour;
  unsigned char endMinute;
  unsigned char endSecond;
};
static_assert(sizeof(DayTimeSpan) == 6);

// How an export ended, or that it has not.
enum ExportState : int {
  EXPORT_RUNNING = 0,
  EXPORT_COMPLETE,       // everything that the span holds is in the file
  EXPORT_STOPPED,        // by Stop; the file holds what came before
  EXPORT_MEDIA_CHANGED,  // size or codec of the pictures changed; the file ends there
  EXPORT_WRITE_FAILED,   // the file could not be opened, written or synced
  EXPORT_FAILED,         // no memory; the file holds what came before
};

struct ExportProgress {
  ExportState state;
  unsigned int doneSeconds;  // of the span
  unsigned int totalSeconds;
  unsigned int videoFrames;  // written
  unsigned int audioFrames;
  unsigned long long bytes;  // of their payload
  long long firstMs;         // time of the first and of the last picture written, milliseconds since 1970;
  long long lastMs;          // 0 before there is one
  int error;                 // errno of a failed write, 0 when it is not known
};

// Called once at the end, on the export's thread: 0, or -1 when the day could not be listed, memory ran out or the
// finished file did not reach the medium. 0 also when nothing was written; then there is no output file.
using ExportCallback = int (*)(int exportId, int result);
// Called on the export's thread, about once a second of the span and once more, with the final state, before the
// export ends.
using ExportProgressHook = void (*)(const ExportProgress& progress, void* context);

namespace record {
class RecordExportJob;
class TimelapseJob;
}  // namespace record

// Copies what was recorded within the span, at most ten minutes of one day, into a new MP4 file: from the first
// key frame on, both ends of the span included, gaps kept. While it is written the file bears the name
// "<outputPath>.part"; it gets its own name when it is whole and on the medium. What a failed write leaves behind
// keeps the ".part".
class RECORD_API CExportRecord {
 public:
  // An end before the begin: the two are swapped. An empty span: the ten minutes that end there, from 23:50 on
  // those from 23:50:00. A longer span is cut to its first ten minutes. `done` may be null.
  CExportRecord(int exportId, int year, int month, int day, DayTimeSpan span, std::string outputPath,
                ExportCallback done);
  ~CExportRecord();
  CExportRecord(const CExportRecord&) = delete;
  CExportRecord& operator=(const CExportRecord&) = delete;

  void SetProgressHook(ExportProgressHook hook, void* context);  // before Start; none by default

  int Start();  // once. 0; -1 when there is no thread, then no callback comes
  // Ends the export after the frame at hand and waits for it; its file is finished in order. Returns at once when
  // the export has ended by itself. 0.
  int Stop();

  // The steps of the export's own thread.
  static void* ExportThread(void* self);
  int ExportHandle();
  int FileWrite(const char* frame, int length, int isVideo, int isKeyFrame, unsigned int& videoTs,
                unsigned int& audioTs);
  int FileClose();
  // From ".../YYYYMMDD/HHMMSS...": milliseconds since 1970 in standard time; seconds of the day. 0 when the path
  // does not tell.
  long long GetStartTimestampByFileName(std::string path) const;
  unsigned int GetStartSecondByFileName(std::string path) const;

 private:
  std::shared_ptr<record::RecordExportJob> m_job;  // its thread holds it, too
};

// Takes single key frames out of the day's files that touch the span, so that they last `seconds` at 25 frames/s,
// and writes them into an MP4 file without sound when the path holds ".mp4"; else, as they are, one after the
// other, into a file without any structure. Of such an older, longer file the rest is kept.
class RECORD_API CExportTimelapse {
 public:
  // `seconds` outside 10 to 300 become 120. A span of less than an hour is sampled like an hour.
  CExportTimelapse(int exportId, int seconds, int year, int month, int day, DayTimeSpan span,
                   std::string outputPath, ExportCallback done);
  ~CExportTimelapse();
  CExportTimelapse(const CExportTimelapse&) = delete;
  CExportTimelapse& operator=(const CExportTimelapse&) = delete;

  // As in CExportRecord.
  void SetProgressHook(ExportProgressHook hook, void* context);
  int Start();
  int Stop();

  static void* ExportTimelapseThread(void* self);
  int ExportTimelapse();
  int FileWrite(const char* frame, int length, int isKeyFrame);
  int FileClose();

 private:
  std::shared_ptr<record::TimelapseJob> m_job;
};

#endif
