// What every command knows: the global options, exit codes, and how a command joins the program.
#ifndef RECORDCTL_OPTIONS_H
#define RECORDCTL_OPTIONS_H

#include <CLI/CLI.hpp>
#include <functional>
#include <string>

namespace recordctl {

// Documented, scripts rely on them.
enum ExitCode : int { kOk = 0, kFailed = 1, kUsage = 2, kInterrupted = 130 };

enum class ProgressStyle { kNone, kLine, kKeyValue };

struct Options {
  std::string root;  // as the user gave it
  bool json = false;
  bool verbose = false;
  std::string progress;  // "", "kv" or "none"
};

using Action = std::function<int()>;

// Each adds its command to `app`; parsing it puts what is to be done into `action`.
void AddRecordCommand(CLI::App& app, const Options& options, Action& action);
void AddSnapshotCommand(CLI::App& app, const Options& options, Action& action);
void AddUploadsCommand(CLI::App& app, const Options& options, Action& action);
void AddListCommand(CLI::App& app, const Options& options, Action& action);
void AddDaysCommand(CLI::App& app, const Options& options, Action& action);
void AddMinutesCommand(CLI::App& app, const Options& options, Action& action);
void AddFindCommand(CLI::App& app, const Options& options, Action& action);
void AddPruneCommand(CLI::App& app, const Options& options, Action& action);
void AddInfoCommand(CLI::App& app, const Options& options, Action& action);
void AddFramesCommand(CLI::App& app, const Options& options, Action& action);
void AddPlayCommand(CLI::App& app, const Options& options, Action& action);
void AddRepairCommand(CLI::App& app, const Options& options, Action& action);
void AddConvertCommand(CLI::App& app, const Options& options, Action& action);
void AddExportCommands(CLI::App& app, const Options& options, Action& action);

}  // namespace recordctl

#endif
