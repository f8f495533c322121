// What a recording tells while it runs, and of each file when it is finished.
#ifndef RECORDCTL_RECORD_REPORT_H
#define RECORDCTL_RECORD_REPORT_H

#include <string>

#include "tools/recordctl/options.h"
#include "tools/recordctl/progress.h"
#include "tools/recordctl/watched_task.h"

namespace recordctl {

void ShowRecording(Progress& progress, const TaskWatch& watch, const std::string& path, long long elapsedMs,
                   int durationSeconds);

void PrintFinishedFile(const Options& options, const TaskWatch& watch, const TaskWatch::File& file);

}  // namespace recordctl

#endif
