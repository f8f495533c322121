// Takes one key frame an interval.
#ifndef EXPORT_TIMELAPSE_JOB_H
#define EXPORT_TIMELAPSE_JOB_H

#include <string>

#include "export/gap_list.h"
#include "export/job.h"

namespace record {

struct TimelapseSettings {
  unsigned seconds = 0;     // of the clip
  unsigned intervalMs = 0;  // of recording, between two pictures
  bool onlyWithin = false;  // no pictures from outside the span, though their file reaches into it
  // A picture an interval, counted from the first one, in place of one as soon as an interval has passed since the
  // one before: with key frames that are hardly closer than the interval that would be half of them.
  bool evenly = false;
  OutputName::Old oldDat = OutputName::Old::kWrittenOver;  // an older .dat file; an MP4 file is always replaced
};

class TimelapseJob : public ExportJob {
 public:
  TimelapseJob(const ExportRequest& request, const TimelapseSettings& settings);

  // What the files cover that were read, milliseconds since 1970; 0: none.
  struct Covered {
    long long fromMs = 0;
    long long toMs = 0;
    GapList gaps;  // between files
  };
  const Covered& CoveredTime() const { return m_covered; }  // once the export has ended

 protected:
  Walk CopyFrames(const ExportSource& source, MediaFile& file) override;
  void LogFile(int number, const std::string& path, int spentMs) const override;

 private:
  void Cover(const ExportSource& source);
  bool IsDue(const ExportSource& source, const MediaFrame& frame) const;
  Walk Copy(const ExportSource& source, const MediaFrame& frame);
  long long DueBehind(long long timeMs) const;
  bool Skip(const ExportSource& source, MediaFile& file, const MediaFrame& frame) const;

  const TimelapseSettings m_settings;
  bool m_hasLast = false;
  long long m_lastMs = 0;  // of the picture written last
  long long m_dueMs = 0;   // the next one is to be no earlier
  Covered m_covered;
};

}  // namespace record

#endif
