// recordctl export and recordctl timelapse
#include <algorithm>
#include <filesystem>
#include <memory>
#include <optional>
#include <utility>

#include "base/text.h"
#include "export/record_job.h"
#include "export/span.h"
#include "export/timelapse_job.h"
#include "tools/recordctl/export_run.h"
#include "tools/recordctl/mp4_frame_check.h"
#include "tools/recordctl/output.h"
#include "tools/recordctl/output_claim.h"
#include "tools/recordctl/root.h"
#include "tools/recordctl/time_span.h"

namespace fs = std::filesystem;

namespace recordctl {
namespace {

constexpr char kExportFooter[] =
    "Examples:\n"
    "  recordctl export --from '2026-05-04 23:50' --to '2026-05-05 00:20' night.mp4\n"
    "  recordctl export --from 08:15:00 --to 08:17:30 event.mp4\n"
    "\n"
    "Nothing is encoded anew. OUT appears when it is whole; until then it is OUT.part.";

constexpr char kTimelapseFooter[] =
    "Examples:\n"
    "  recordctl timelapse --from '2026-05-04 00:00' --to '2026-05-05 00:00' --seconds 60 day.mp4\n"
    "  recordctl timelapse --from 06:00 --to 20:00 --seconds 120 day.dat\n"
    "\n"
    "OUT.mp4 plays at 25 pictures a second; OUT.dat holds the pictures' bytes one after the other.";

constexpr long long kPartSeconds = 600;

struct ExportRequest {
  std::string from;
  std::string to;
  std::string out;
  bool split = false;
  bool overwrite = false;
  int seconds = 0;
};

using record::EndsWith;

// "clip.mp4" becomes "clip-01.mp4".
std::string PartName(const std::string& out, std::size_t part) {
  char number[32];
  std::snprintf(number, sizeof number, "-%02zu", part);
  const fs::path path(out);
  return (path.parent_path() / (path.stem().string() + number + path.extension().string())).string();
}

std::string NothingIn(const TimeSpan& span, unsigned long damaged) {
  return (damaged == 0 ? "no recordings between " : "only damaged recordings between ") +
         IsoTime(MomentMs(span, span.from)) + " and " + IsoTime(MomentMs(span, span.to));
}

// By the files: between its pictures a time lapse has nothing but gaps.
record::GapList LapseGaps(const TimeSpan& span, const ExportProgress& end,
                          const record::TimelapseJob::Covered& covered) {
  record::GapList gaps;
  gaps.Add(MomentMs(span, span.from), covered.fromMs);
  gaps.Append(covered.gaps);
  if (end.state == EXPORT_COMPLETE) gaps.Add(covered.toMs, MomentMs(span, span.to));
  return gaps;
}

// False, with a line: the request makes no sense or the output cannot be made.
bool Check(const Options& options, const ExportRequest& request, TimeSpan& span, int& code) {
  std::string error;
  code = kUsage;
  if (!ParseSpan(request.from, request.to, span, error)) {
    Say(error);
    return false;
  }
  code = kFailed;
  return UseRoot(options);
}

class Exporter {
 public:
  Exporter(const Options& options, const ExportRequest& request)
      : m_options(options), m_request(request), m_run(options, "exporting", "export") {}

  int Run(const TimeSpan& span) {
    m_reachedMs = MomentMs(span, span.from);
    const std::vector<TimeSpan> parts = m_request.split ? PartsOf(span, kPartSeconds) : std::vector{span};
    for (const TimeSpan& part : parts) {
      ExportPart(part, part.to < span.to);
      if (m_code != kOk) return m_code;
    }
    if (!m_held) return Fail(NothingIn(span, m_damaged));
    m_held->gaps.Add(m_reachedMs, MomentMs(span, span.to));
    ReportHeld();
    return m_code;
  }

 private:
  // A change of the pictures ends its file: what is behind it becomes the next one.
  void ExportPart(const TimeSpan& part, bool toNextKey) {
    record::RecordExportSettings settings = {static_cast<unsigned>(part.Seconds()), toNextKey};
    for (std::vector<record::ExportPiece> pieces = PiecesOf(part); !pieces.empty();) {
      const std::string path = m_request.split ? PartName(m_request.out, ++m_part) : m_request.out;
      const OutputClaim claim(path, m_request.overwrite);
      if (!claim.Complaint().empty()) {
        ReportHeld();
        m_code = Fail(claim.Complaint());
        return;
      }
      const auto job = std::make_shared<record::RecordExportJob>(
          record::ExportRequest{0, pieces, path, nullptr, Mp4FrameCheck()}, settings);
      ExportProgress end = m_run.Run(job);
      pieces.clear();
      if (end.state == EXPORT_MEDIA_CHANGED && (m_request.split || end.videoFrames == 0)) {
        pieces = job->Rest();
        end.state = EXPORT_COMPLETE;
        if (m_request.split && end.videoFrames == 0) --m_part;
      }
      Take({path, end, {}, job->LeftOut()}, job->Timeline().Gaps());
    }
  }

  // What is missing in front of a file and behind the last one is a gap, too; which one is the last shows later.
  void Take(ExportReport report, const record::GapList& gaps) {
    m_damaged += report.leftOut.damaged;
    if (report.end.videoFrames != 0) {
      report.gaps.Add(m_reachedMs, report.end.firstMs);
      report.gaps.Append(gaps);
      m_reachedMs = report.end.lastMs;
    }
    const bool isComplete = report.end.state == EXPORT_COMPLETE;
    if (isComplete && report.end.videoFrames == 0) {
      ReportExport(m_options, report);
      return;
    }
    ReportHeld();
    m_held = std::move(report);
    if (!isComplete) ReportHeld();
  }

  void ReportHeld() {
    if (m_held) m_code = std::max(m_code, ReportExport(m_options, *m_held));
    m_held.reset();
  }

  const Options& m_options;
  const ExportRequest& m_request;
  ExportRun m_run;
  int m_code = kOk;
  std::size_t m_part = 0;
  long long m_reachedMs = 0;  // the files go up to there
  unsigned long m_damaged = 0;
  std::optional<ExportReport> m_held;  // the last file with pictures, until it is known what comes behind it
};

int Export(const Options& options, const ExportRequest& request) {
  TimeSpan span = {};
  int code = kOk;
  if (!EndsWith(request.out, ".mp4")) {
    Say(request.out + ": exports are named .mp4");
    return kUsage;
  }
  if (!Check(options, request, span, code)) return code;
  return Exporter(options, request).Run(span);
}

int Timelapse(const Options& options, const ExportRequest& request) {
  TimeSpan span = {};
  int code = kOk;
  if (!EndsWith(request.out, ".mp4") && !EndsWith(request.out, ".dat")) {
    Say(request.out + ": time lapses are named .mp4 or .dat");
    return kUsage;
  }
  if (!Check(options, request, span, code)) return code;
  const OutputClaim claim(request.out, request.overwrite);
  if (!claim.Complaint().empty()) return Fail(claim.Complaint());
  const auto minutes = static_cast<unsigned>(std::max(span.Seconds() / 60, 1LL));
  const record::TimelapseSettings settings = {static_cast<unsigned>(request.seconds),
                                              record::TimelapseInterval(request.seconds, minutes), true, true,
                                              record::OutputName::Old::kReplaced};
  const bool isMp4 = EndsWith(request.out, ".mp4");
  const auto job = std::make_shared<record::TimelapseJob>(
      record::ExportRequest{0, PiecesOf(span), request.out, nullptr, isMp4 ? Mp4FrameCheck() : nullptr}, settings);
  const ExportProgress end = ExportRun(options, "condensing", "timelapse").Run(job);
  const record::LeftOutFrames& leftOut = job->LeftOut();
  code = ReportExport(options, {request.out, end, LapseGaps(span, end, job->CoveredTime()), leftOut});
  if (code == kOk && end.videoFrames == 0) return Fail(NothingIn(span, leftOut.damaged));
  return code;
}

using Work = int (*)(const Options& options, const ExportRequest& request);

CLI::App* AddCommon(CLI::App& app, const Options& options, Action& action, const char* name, const char* what,
                    const std::shared_ptr<ExportRequest>& request, Work work) {
  CLI::App* command = app.add_subcommand(name, what);
  command->add_option("--from", request->from, "Begin: YYYY-MM-DD HH:MM:SS, or HH:MM:SS of today")->required();
  command->add_option("--to", request->to, "End: the same, or a time of the begin's day")->required();
  command->add_option("OUT", request->out, "The file to make")->required();
  command->add_flag("--overwrite", request->overwrite, "Replace OUT when it is there");
  command->callback([&options, &action, request, work] {
    action = [&options, request, work] { return work(options, *request); };
  });
  return command;
}

}  // namespace

void AddExportCommands(CLI::App& app, const Options& options, Action& action) {
  const auto request = std::make_shared<ExportRequest>();
  CLI::App* copy =
      AddCommon(app, options, action, "export", "Copy the recordings of a span into an MP4 file", request, Export);
  copy->add_flag("--split", request->split, "A file every ten minutes: OUT-01.mp4, OUT-02.mp4, ...");
  copy->footer(kExportFooter);
  const auto lapse = std::make_shared<ExportRequest>();
  CLI::App* condense = AddCommon(app, options, action, "timelapse",
                                 "Condense the recordings of a span into a clip", lapse, Timelapse);
  condense->add_option("--seconds", lapse->seconds, "Length of the clip, 10 to 300 s")
      ->required()
      ->check(CLI::Range(10, 300));
  condense->footer(kTimelapseFooter);
}

}  // namespace recordctl
