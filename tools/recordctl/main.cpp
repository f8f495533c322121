// recordctl: the recording library at the command line.
#include <CLI/CLI.hpp>
#include <exception>

#include "record_host/host.h"
#include "tools/recordctl/options.h"
#include "tools/recordctl/output.h"
#include "tools/recordctl/root.h"
#include "tools/recordctl/signals.h"

#ifndef RECORDCTL_VERSION
#define RECORDCTL_VERSION "0.1.0"
#endif

namespace recordctl {
namespace {

constexpr int kLibraryLogLevel = 7;

constexpr char kProgramFooter[] =
    "Examples:\n"
    "  recordctl record --input rtsp://camera/stream --duration 3600\n"
    "  recordctl list --date 2026-05-04\n"
    "  recordctl frames FILE --raw video | ffprobe -\n"
    "\n"
    "Exit codes: 0 done, 1 failed, 2 wrong usage, 130 interrupted.\n"
    "Results go to stdout, messages and progress to stderr.";

void AddGlobalOptions(CLI::App& app, Options& options) {
  app.add_option("--root", options.root, "Directory of the device tree (default: $RECORD_ROOT, else ./recordings)")
      ->take_last();
  app.add_flag("--json", options.json, "Machine-readable output: one JSON object a line");
  app.add_flag("-v,--verbose", options.verbose, "Diagnostics of the library on stderr");
  app.add_option("--progress", options.progress,
                 "kv: key=value lines on stderr once a second; none: no progress at all")
      ->check(CLI::IsMember({"kv", "none"}));
  app.set_version_flag("--version", std::string("recordctl ") + RECORDCTL_VERSION);
}

int Parse(CLI::App& app, int count, char** arguments) {
  try {
    app.parse(count, arguments);
  } catch (const CLI::Success& asked) {  // --help, --version
    app.exit(asked);
    return FinishOutput(kOk);
  } catch (const CLI::ParseError& error) {
    Say(std::string(error.what()) + " (recordctl --help tells more)");
    return kUsage;
  }
  return -1;
}

int Run(int count, char** arguments) {
  Options options;
  options.root = DefaultRoot();
  Action action;
  CLI::App app("Records live streams, and looks after what was recorded.", "recordctl");
  app.require_subcommand(0, 1);  // an unknown command is told by its name, a missing one below
  app.fallthrough();
  app.footer(kProgramFooter);
  AddGlobalOptions(app, options);
  AddRecordCommand(app, options, action);
  AddSnapshotCommand(app, options, action);
  AddUploadsCommand(app, options, action);
  AddListCommand(app, options, action);
  AddDaysCommand(app, options, action);
  AddMinutesCommand(app, options, action);
  AddFindCommand(app, options, action);
  AddPruneCommand(app, options, action);
  AddInfoCommand(app, options, action);
  AddFramesCommand(app, options, action);
  AddPlayCommand(app, options, action);
  AddRepairCommand(app, options, action);
  AddConvertCommand(app, options, action);
  AddExportCommands(app, options, action);
  const int early = Parse(app, count, arguments);
  if (early >= 0) return early;
  if (!action) {
    Say("a command is missing (recordctl --help lists them)");
    return kUsage;
  }
  if (options.verbose) HostLogLevel(kLibraryLogLevel);
  return FinishOutput(action());
}

}  // namespace
}  // namespace recordctl

int main(int count, char** arguments) {
  recordctl::InstallSignals();
  try {
    return recordctl::Run(count, arguments);
  } catch (const std::exception& error) {
    return recordctl::Fail(error.what());
  }
}
