// One export at work: signals, progress, and what is told at its end.
#ifndef RECORDCTL_EXPORT_RUN_H
#define RECORDCTL_EXPORT_RUN_H

#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>

#include "export/gap_list.h"
#include "export/job.h"
#include "tools/recordctl/options.h"
#include "tools/recordctl/progress.h"

namespace recordctl {

class ExportRun {
 public:
  // `what` is for people ("exporting"), `phase` for programs.
  ExportRun(const Options& options, std::string what, std::string phase);

  // Runs the job to its end, or until a signal. How it ended.
  ExportProgress Run(const std::shared_ptr<record::ExportJob>& job);

 private:
  static void Hook(const ExportProgress& progress, void* self);
  void Show(const ExportProgress& now);

  const std::string m_what;
  const std::string m_phase;
  Progress m_progress;
  std::mutex m_mutex;
  std::condition_variable m_changed;
  ExportProgress m_now = {};  // guarded by m_mutex
  double m_began = 0;         // seconds of a steady clock
};

// What came of one output.
struct ExportReport {
  std::string path;
  ExportProgress end;
  record::GapList gaps;
  record::LeftOutFrames leftOut;
};

// A line or an object on stdout; when it is not what was asked for, a line on stderr, too. Returns the exit code.
int ReportExport(const Options& options, const ExportReport& report);

}  // namespace recordctl

#endif
