// recordctl find
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <memory>

#include "record/lookups.h"
#include "tools/recordctl/options.h"
#include "tools/recordctl/output.h"
#include "tools/recordctl/progress.h"
#include "tools/recordctl/root.h"
#include "tools/recordctl/time_text.h"

namespace recordctl {
namespace {

constexpr char kFindFooter[] =
    "Examples:\n"
    "  recordctl find --at \"2026-05-04 08:15:30\"\n"
    "  recordctl find --at \"2026-05-04 08:15:30\" --stream 1\n"
    "\n"
    "A moment between two recordings finds the later one, from its begin on.";

constexpr int kNone = -1;

struct FindRequest {
  std::string at;
  int stream = kNone;
  int sensor = kNone;
};

// Some lookups print their diagnostics on standard output, which is for results here: while one lives they go to
// stderr, or nowhere unless diagnostics are asked for.
class DivertedOutput {
 public:
  explicit DivertedOutput(bool verbose) : m_output(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0)) {
    std::fflush(stdout);
    const int nowhere = verbose ? -1 : open("/dev/null", O_WRONLY | O_CLOEXEC);
    dup2(nowhere >= 0 ? nowhere : STDERR_FILENO, STDOUT_FILENO);
    if (nowhere >= 0) close(nowhere);
  }
  ~DivertedOutput() {
    std::fflush(stdout);
    if (m_output < 0) {
      close(STDOUT_FILENO);  // it was closed before
      return;
    }
    dup2(m_output, STDOUT_FILENO);
    close(m_output);
  }
  DivertedOutput(const DivertedOutput&) = delete;
  DivertedOutput& operator=(const DivertedOutput&) = delete;

 private:
  const int m_output;
};

bool LookUp(const Options& options, const FindRequest& request, const Moment& at, std::string& path,
            unsigned& offset) {
  const Waiting waiting(options, "looking for the recording", "find");
  const DivertedOutput diverted(options.verbose);
  const auto [year, month, day] = at.date;
  if (request.stream != kNone)
    return GetRecordFileAndOffset_by_streamIdx(year, month, day, at.hour, at.minute, at.second, path, offset,
                                               request.stream) == 0;
  if (request.sensor != kNone)
    return GetRecordFileAndOffsetBySensorId(year, month, day, at.hour, at.minute, at.second, request.sensor, path,
                                            offset) == 0;
  return GetRecordFileAndOffset(year, month, day, at.hour, at.minute, at.second, path, offset) == 0;
}

int Find(const Options& options, const FindRequest& request) {
  Moment at = {};
  if (!ParseMoment(request.at, at)) {
    Say("'" + request.at + "' is not a moment (YYYY-MM-DD HH:MM:SS)");
    return kUsage;
  }
  if (!UseRoot(options)) return kFailed;
  std::string path;
  unsigned offset = 0;
  if (!LookUp(options, request, at, path, offset)) return Fail("no recording at or after " + request.at);
  path = ShownFile(options, path);
  if (options.json)
    WriteJson({{"path", path}, {"offset", offset}});
  else
    WriteText("%s  from second %u on\n", Printable(path).c_str(), offset);
  return kOk;
}

}  // namespace

void AddFindCommand(CLI::App& app, const Options& options, Action& action) {
  const auto request = std::make_shared<FindRequest>();
  CLI::App* command = app.add_subcommand("find", "The recording that holds a moment, and where in it");
  command->footer(kFindFooter);
  command->add_option("--at", request->at, "Local time, \"YYYY-MM-DD HH:MM:SS\"")->required();
  CLI::Option* stream =
      command
          ->add_option("--stream", request->stream, "Files with this stream number in their name, or the next one")
          ->check(CLI::Range(0, 99));
  command->add_option("--sensor", request->sensor, "MP4 files of sensor 0 (streams 1, 2) or another (6, 7)")
      ->check(CLI::Range(0, 99))
      ->excludes(stream);
  command->callback(
      [&options, &action, request] { action = [&options, request] { return Find(options, *request); }; });
}

}  // namespace recordctl
