// Copies all frames of a span.
#ifndef EXPORT_RECORD_JOB_H
#define EXPORT_RECORD_JOB_H

#include <string>

#include "export/job.h"
#include "export/timeline.h"

namespace record {

struct RecordExportSettings {
  unsigned seconds = 0;  // the length that the file is meant to get
  // Goes on behind the span up to the next key frame, so that an export from there on misses nothing.
  bool toNextKey = false;
};

class RecordExportJob : public ExportJob {
 public:
  RecordExportJob(const ExportRequest& request, const RecordExportSettings& settings);

  const ExportTimeline& Timeline() const { return m_timeline; }  // once the export has ended

 protected:
  void TakeFileParams(const VIDEO_PARAM& video, const AUDIO_PARAM& audio) override;
  Walk CopyFrames(const ExportSource& source, MediaFile& file) override;
  void LogFile(int number, const std::string& path, int spentMs) const override;

 private:
  enum class Where { kOutside, kInside, kBehind };
  Where Locate(const ExportSource& source, const MediaFrame& frame) const;
  Walk Copy(const ExportSource& source, const MediaFrame& frame);

  const bool m_toNextKey;
  ExportTimeline m_timeline;
  unsigned m_framerate = 0;  // of the file at hand, as is
  AUDIO_PARAM m_audio = {};
  bool m_soundFits = false;  // the track can hold the file's sound
};

}  // namespace record

#endif
