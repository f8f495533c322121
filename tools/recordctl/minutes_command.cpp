// recordctl minutes
#include <unistd.h>

#include <algorithm>
#include <map>
#include <memory>

#include "record/lookups.h"
#include "storage/type_index.h"
#include "tools/recordctl/minute_picture.h"
#include "tools/recordctl/options.h"
#include "tools/recordctl/output.h"
#include "tools/recordctl/progress.h"
#include "tools/recordctl/root.h"
#include "tools/recordctl/time_text.h"

namespace recordctl {
namespace {

constexpr char kMinutesFooter[] =
    "Examples:\n"
    "  recordctl minutes --date 2026-05-04\n"
    "  recordctl minutes --date 2026-05-04 --png day.png\n"
    "\n"
    "A row an hour, a cell a minute: A schedule or manual, B motion or alarm, . nothing; other letters are those\n"
    "that a program gave its recordings.";

constexpr size_t kMinutesAnHour = 60;

struct MinutesRequest {
  std::string date;
  std::string png;
};

char Shown(char minute) {
  if (minute == record::kNoRecording) return '.';
  return minute > ' ' && minute < 0x7f ? minute : '?';  // indexes may hold anything
}

std::string Cell(char minute, bool colours) {
  if (!colours) return {Shown(minute)};
  if (minute == record::kNoRecording) return "\x1b[2m\xc2\xb7\x1b[0m";  // a dot in the middle
  const Colour colour = ColourOf(minute);
  return "\x1b[48;2;" + std::to_string(colour[0]) + ";" + std::to_string(colour[1]) + ";" +
         std::to_string(colour[2]) + "m" + Shown(minute) + "\x1b[0m";
}

void PrintRows(const std::string& minutes) {
  const bool colours = isatty(STDOUT_FILENO) != 0;
  WriteText("   00              15              30              45\n");
  for (size_t minute = 0; minute < minutes.size();) {
    std::string row;
    for (size_t cell = 0; cell < kMinutesAnHour; ++cell) {
      if (cell > 0 && cell % kMinutesAQuarter == 0) row += ' ';
      row += Cell(minutes[minute + cell], colours);
    }
    WriteText("%02zu %s\n", minute / kMinutesAnHour, row.c_str());
    minute += kMinutesAnHour;
  }
}

void PrintSum(const std::string& minutes) {
  std::map<char, int> counts;
  for (const char minute : minutes) ++counts[Shown(minute)];
  std::string text;
  for (const auto& [letter, count] : counts) {
    const char* meaning = letter == 'A' ? " schedule or manual" : letter == 'B' ? " motion or alarm" : "";
    if (letter == '.') meaning = " nothing";
    text.append(text.empty() ? "" : ", ")
        .append(1, letter)
        .append(meaning)
        .append(" ")
        .append(std::to_string(count));
  }
  WriteText("minutes: %s\n", text.c_str());
}

int Minutes(const Options& options, const MinutesRequest& request) {
  Date date = Today();
  if (!request.date.empty() && !ParseDate(request.date, date)) {
    Say("'" + request.date + "' is not a day (YYYY-MM-DD)");
    return kUsage;
  }
  if (!UseRoot(options)) return kFailed;
  std::string minutes(record::kTypeIndexMinutes, record::kNoRecording);
  {
    const Waiting waiting(options, "reading the minutes of " + DateText(date), "minutes");
    if (GetRecordDistribute(date.year, date.month, date.day, minutes.data()) != 0)
      return Fail("no memory for the catalogue");
  }
  if (minutes.find_first_not_of(record::kNoRecording) == std::string::npos)
    return Fail("no recordings on " + DateText(date));
  if (!request.png.empty()) {
    const std::string complaint = WriteMinutePicture(request.png, minutes);
    return complaint.empty() ? kOk : Fail("cannot write " + request.png + ": " + complaint);
  }
  if (options.json) {
    std::transform(minutes.begin(), minutes.end(), minutes.begin(), Shown);
    WriteJson({{"date", DateText(date)}, {"minutes", minutes}});
    return kOk;
  }
  PrintRows(minutes);
  PrintSum(minutes);
  return kOk;
}

}  // namespace

void AddMinutesCommand(CLI::App& app, const Options& options, Action& action) {
  const auto request = std::make_shared<MinutesRequest>();
  CLI::App* command = app.add_subcommand("minutes", "The minutes of a day that hold recordings");
  command->footer(kMinutesFooter);
  command->add_option("--date", request->date, "The day, YYYY-MM-DD (default: today)");
  command->add_option("--png", request->png, "Draw them into this file");
  command->callback(
      [&options, &action, request] { action = [&options, request] { return Minutes(options, *request); }; });
}

}  // namespace recordctl
