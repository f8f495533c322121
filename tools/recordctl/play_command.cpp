// recordctl play
#include <unistd.h>

#include <memory>

#include "base/clock.h"
#include "tools/recordctl/day_walk.h"
#include "tools/recordctl/options.h"
#include "tools/recordctl/output.h"
#include "tools/recordctl/player.h"
#include "tools/recordctl/root.h"
#include "tools/recordctl/time_text.h"

namespace recordctl {
namespace {

constexpr char kPlayFooter[] =
    "Examples:\n"
    "  recordctl play --at \"2026-05-04 08:15:00\" --duration 60\n"
    "  recordctl play --at \"2026-05-04 08:15:00\" --speed 4 --output - | ffplay -\n"
    "  recordctl play FILE\n"
    "\n"
    "Keys: space pauses, left and right go 10 s, + and - change the speed, q ends.";

long long LocalSeconds(const Moment& moment) {
  const Date& date = moment.date;
  return record::FromLocalTime(
      record::CalendarTime(date.year, date.month, date.day, moment.hour, moment.minute, moment.second));
}

int PlayAt(const Options& options, const PlayRequest& request) {
  Moment at;
  if (!ParseMoment(request.at, at)) {
    Say("--at \"" + Printable(request.at) + "\" is not a time like \"2026-05-04 08:15:00\"");
    return kUsage;
  }
  if (!UseRoot(options)) return kFailed;
  const long long time = LocalSeconds(at);
  const long long start = PlayableFrom(time);  // a session that is begun in a gap shows the file before it
  if (start < 0) return Fail("nothing was recorded at " + request.at + " or later that day");
  if (start > time) Say("nothing was recorded at " + request.at + ", playing from " + IsoTime(start * 1000));
  Player player(options, request);
  return player.PlayDay(start);
}

int PlayOneFile(const Options& options, const PlayRequest& request) {
  if (!UseRoot(options)) return kFailed;
  const std::string path = FindFile(options, request.file);
  if (access(path.c_str(), R_OK) != 0) return Fail(request.file + ": cannot be read");
  Player player(options, request);
  return player.PlayFile(path);
}

int PlayRecording(const Options& options, const PlayRequest& request) {
  if (request.at.empty() == request.file.empty()) {
    Say("either --at or FILE is needed");
    return kUsage;
  }
  if (request.speed == 0) {
    Say("--speed 0 is none: 1 is normal, 2 to 16 faster, -1 to -16 slower");
    return kUsage;
  }
  return request.at.empty() ? PlayOneFile(options, request) : PlayAt(options, request);
}

}  // namespace

void AddPlayCommand(CLI::App& app, const Options& options, Action& action) {
  const auto request = std::make_shared<PlayRequest>();
  CLI::App* command = app.add_subcommand("play", "Play a day from a moment on, or one file");
  command->footer(kPlayFooter);
  command->add_option("FILE", request->file, "A record file");
  command->add_option("--at", request->at, "Begin here and go on from file to file");
  command->add_option("--speed", request->speed, "1 normal, up to 16 faster, -2 to -16 slower")
      ->check(CLI::Range(-16, 16));
  command->add_option("--duration", request->duration, "Seconds of recording to play")
      ->check(CLI::Range(0, 86400));
  command->add_flag("--one-file", request->oneFile, "End with the file that --at finds");
  command->add_option("--output", request->output,
                      "Write what is played: Matroska, or MPEG-TS for NAME.ts; - stdout");
  command->callback(
      [&options, &action, request] { action = [&options, request] { return PlayRecording(options, *request); }; });
}

}  // namespace recordctl
