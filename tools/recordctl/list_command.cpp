// recordctl list
#include <memory>
#include <vector>

#include "record/catalogue.h"
#include "tools/recordctl/contents.h"
#include "tools/recordctl/options.h"
#include "tools/recordctl/output.h"
#include "tools/recordctl/progress.h"
#include "tools/recordctl/record_state.h"
#include "tools/recordctl/root.h"
#include "tools/recordctl/time_text.h"

namespace recordctl {
namespace {

constexpr char kListFooter[] =
    "Examples:\n"
    "  recordctl list\n"
    "  recordctl --json list --date 2026-05-04\n"
    "\n"
    "State: complete; recording (a writer is at it); interrupted (it lost its end: see recordctl repair).";

struct Entry {
  std::string kind;
  std::string path;      // as the user would write it
  unsigned startSecond;  // of the day, as the catalogue has them
  unsigned endSecond;
  unsigned seconds;  // by the side file, or by the packets
  long long startMs;
  long long endMs;
  long long videoFrames;
  long long audioFrames;
  long long bytes;
  Ending ending;
};

// What the side file tells of a file without an end is the plan: the file itself is asked.
void CountFrames(const std::string& path, Entry& entry) {
  RecordFile file = {path, Container::kKmv};
  if (!RecognizeContainer(path, file.container)) return;
  const Contents contents = ReadContents(file, true);
  if (!contents.error.empty()) return;
  entry.videoFrames = contents.totals.videoFrames;
  entry.audioFrames = contents.totals.audioFrames;
  entry.bytes = contents.totals.videoBytes + contents.totals.audioBytes;
  entry.endMs = LastFrameMs(contents, entry.startMs);
  entry.seconds = static_cast<unsigned>((entry.endMs - entry.startMs + 500) / 1000);
  entry.endSecond = entry.startSecond + entry.seconds;
}

Entry Describe(const Options& options, const RecordFileInfo& listed) {
  const std::string file = RecordFilePath(listed);
  const SideFile side = ReadSideFile(file);
  Entry entry = {};
  entry.kind = KindOf(file);
  entry.path = ShownPath(options, std::string(listed.szRootPath) + "/" + listed.szFileName);
  entry.startSecond = listed.nStartSecond;
  entry.endSecond = listed.nEndSecond;
  entry.startMs = StartMs(side.info);
  entry.endMs = EndMs(side.info);
  entry.seconds = side.info.nTimeSeconds;
  entry.videoFrames = side.info.videoFrames;
  entry.audioFrames = side.info.audioFrames;
  entry.bytes = side.info.totalBytes;
  entry.ending = EndingOf(file);
  if (entry.ending != Ending::kComplete) CountFrames(file, entry);
  return entry;
}

bool PrintJson(const Entry& entry) {
  return WriteJson({{"path", entry.path},
                    {"kind", entry.kind},
                    {"state", EndingName(entry.ending)},
                    {"start", IsoTime(entry.startMs)},
                    {"end", IsoTime(entry.endMs)},
                    {"seconds", entry.seconds},
                    {"start_second", entry.startSecond},
                    {"end_second", entry.endSecond},
                    {"video_frames", entry.videoFrames},
                    {"audio_frames", entry.audioFrames},
                    {"bytes", entry.bytes}});
}

bool PrintText(const Entry& entry) {
  return WriteText("%-9s %-9s %-9s %7u %8lld %8lld %13s  %-11s  %s\n", entry.kind.c_str(),
                   ClockText(entry.startSecond).c_str(), ClockText(entry.startSecond + entry.seconds).c_str(),
                   entry.seconds, entry.videoFrames, entry.audioFrames,
                   Grouped(static_cast<unsigned long long>(entry.bytes)).c_str(), EndingName(entry.ending),
                   Printable(entry.path).c_str());
}

bool ReadDay(const Options& options, const Date& date, std::vector<Entry>& entries) {
  const Waiting waiting(options, "reading the catalogue of " + DateText(date), "list");
  DayRecordMap map;
  // Keyed by stream, too: main and sub stream may begin in the same second.
  if (GetDayRecordInfoEx(date.year, date.month, date.day, map) != 0) return false;
  entries.reserve(map.size());
  for (const auto& listed : map) entries.push_back(Describe(options, *listed.second));
  Free_MapRecordFileInfo(map);
  return true;
}

int List(const Options& options, const std::string& dateText) {
  Date date = Today();
  if (!dateText.empty() && !ParseDate(dateText, date)) {
    Say("'" + dateText + "' is not a day (YYYY-MM-DD)");
    return kUsage;
  }
  if (!UseRoot(options)) return kFailed;
  std::vector<Entry> entries;
  if (!ReadDay(options, date, entries)) return Fail("no memory for the catalogue");
  if (entries.empty()) return Fail("no recordings on " + DateText(date));
  if (!options.json)
    WriteText("%-9s %-9s %-9s %7s %8s %8s %13s  %-11s  %s\n", "KIND", "START", "END", "SECONDS", "VIDEO", "AUDIO",
              "BYTES", "STATE", "FILE");
  for (const Entry& entry : entries) {
    if (!(options.json ? PrintJson(entry) : PrintText(entry))) break;
  }
  return kOk;
}

}  // namespace

void AddListCommand(CLI::App& app, const Options& options, Action& action) {
  const auto date = std::make_shared<std::string>();
  CLI::App* command = app.add_subcommand("list", "List the recordings of a day");
  command->footer(kListFooter);
  command->add_option("--date", *date, "The day, YYYY-MM-DD (default: today)");
  command->callback([&options, &action, date] { action = [&options, date] { return List(options, *date); }; });
}

}  // namespace recordctl
