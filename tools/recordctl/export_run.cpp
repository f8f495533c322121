#include "tools/recordctl/export_run.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <utility>

#include "tools/recordctl/output.h"
#include "tools/recordctl/signals.h"
#include "tools/recordctl/time_text.h"

namespace recordctl {
namespace {

double Now() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

std::string Fixed(double value) {
  char text[48];
  std::snprintf(text, sizeof text, "%.1f", value);
  return text;
}

std::string Bar(unsigned done, unsigned total) {
  constexpr unsigned kWidth = 20;
  const auto filled = static_cast<unsigned>(std::uint64_t{done} * kWidth / std::max(total, 1u));
  return "[" + std::string(filled, '#') + std::string(kWidth - filled, '.') + "]";
}

std::string FailureText(int error) {
  if (error == ENOSPC || error == EDQUOT) return "the disk is full";
  if (error == EINVAL) return "an MP4 file cannot hold these pictures";
  return error != 0 ? std::string("writing failed: ") + std::strerror(error) : "writing failed (-v tells more)";
}

std::string Reason(const std::string& path, const ExportProgress& end) {
  switch (end.state) {
    case EXPORT_STOPPED:
      return "interrupted";
    case EXPORT_MEDIA_CHANGED:
      return "the pictures change their size or codec: export the rest on its own";
    case EXPORT_WRITE_FAILED:
      return FailureText(end.error);
    default:
      return "no memory for " + path;
  }
}

// The group of pictures that was at hand when a write failed need not be in the file.
std::string HowFar(const std::string& written, const ExportProgress& end) {
  if (end.videoFrames == 0) return "nothing was written";
  const std::string last = IsoTime(end.lastMs);
  if (end.state == EXPORT_WRITE_FAILED) return "what was written, up to " + last + " at most, lies in " + written;
  return written + " goes to " + last;
}

Json GapsJson(const record::GapList& gaps) {
  Json list = Json::array();
  for (const record::ExportGap& gap : gaps.Gaps())
    list.push_back({{"from", IsoTime(gap.fromMs)}, {"to", IsoTime(gap.toMs)}, {"ms", gap.toMs - gap.fromMs}});
  return list;
}

void PrintText(const std::string& path, const ExportReport& report) {
  const ExportProgress& end = report.end;
  WriteText("%s  %s to %s, %u video and %u audio frames, %s bytes\n", Printable(path).c_str(),
            IsoTime(end.firstMs).c_str(), IsoTime(end.lastMs).c_str(), end.videoFrames, end.audioFrames,
            Grouped(end.bytes).c_str());
  for (const record::ExportGap& gap : report.gaps.Gaps())
    WriteText("gap  %s to %s, %s s\n", IsoTime(gap.fromMs).c_str(), IsoTime(gap.toMs).c_str(),
              SecondsText(gap.toMs - gap.fromMs).c_str());
  if (report.gaps.LeftOut() != 0) WriteText("and %zu more gaps\n", report.gaps.LeftOut());
  const record::LeftOutFrames& leftOut = report.leftOut;
  if (leftOut.damaged == 0) return;
  WriteText("%lu damaged %s left out", leftOut.damaged, leftOut.damaged == 1 ? "frame was" : "frames were");
  if (leftOut.leaning != 0) WriteText(", and %lu that lean on damaged ones", leftOut.leaning);
  WriteText("\n");
}

}  // namespace

ExportRun::ExportRun(const Options& options, std::string what, std::string phase)
    : m_what(std::move(what)), m_phase(std::move(phase)), m_progress(ChosenProgress(options)) {}

void ExportRun::Hook(const ExportProgress& progress, void* self) {
  auto& run = *static_cast<ExportRun*>(self);
  const std::lock_guard<std::mutex> lock(run.m_mutex);
  run.m_now = progress;
  run.m_changed.notify_one();
}

ExportProgress ExportRun::Run(const std::shared_ptr<record::ExportJob>& job) {
  constexpr std::chrono::milliseconds kLook{100};
  const DeferSignals deferred;
  m_began = Now();
  m_now = {};
  job->SetProgressHook(Hook, this);
  if (job->Start("ExportThread", job) != 0) return {EXPORT_FAILED, 0, 0, 0, 0, 0, 0, 0, 0};
  std::unique_lock<std::mutex> lock(m_mutex);
  while (m_now.state == EXPORT_RUNNING) {
    m_changed.wait_for(lock, kLook);
    const ExportProgress now = m_now;
    lock.unlock();
    if (WasInterrupted()) job->Stop();
    if (m_progress.IsDue()) Show(now);
    lock.lock();
  }
  return m_now;
}

void ExportRun::Show(const ExportProgress& now) {
  const double elapsed = Now() - m_began;
  const double speed = elapsed > 0 ? now.doneSeconds / elapsed : 0;
  const unsigned total = std::max(now.totalSeconds, now.doneSeconds);
  const bool isKnown = speed > 0 && total > 0;
  const std::string left = isKnown ? Fixed((total - now.doneSeconds) / speed) : "?";
  m_progress.Show(m_what + " " + Bar(now.doneSeconds, total) + " " + std::to_string(now.doneSeconds) + " of " +
                      std::to_string(total) + " s, " + Fixed(speed) + "x, " + left + " s left",
                  {{"phase", m_phase},
                   {"done", std::to_string(now.doneSeconds)},
                   {"total", std::to_string(total)},
                   {"video_frames", std::to_string(now.videoFrames)},
                   {"audio_frames", std::to_string(now.audioFrames)},
                   {"bytes", std::to_string(now.bytes)},
                   {"speed", Fixed(speed)},
                   {"remaining", left}});
}

int ReportExport(const Options& options, const ExportReport& report) {
  const std::string& path = report.path;
  const ExportProgress& end = report.end;
  const std::string written = end.state == EXPORT_WRITE_FAILED ? path + ".part" : path;
  const bool isComplete = end.state == EXPORT_COMPLETE;
  if (end.videoFrames == 0) unlink((path + ".part").c_str());
  if (end.videoFrames != 0 && options.json) {
    WriteJson({{"path", written},
               {"complete", isComplete},
               {"start", IsoTime(end.firstMs)},
               {"end", IsoTime(end.lastMs)},
               {"span_ms", end.lastMs - end.firstMs},
               {"video_frames", end.videoFrames},
               {"audio_frames", end.audioFrames},
               {"bytes", end.bytes},
               {"gaps", GapsJson(report.gaps)},
               {"gaps_left_out", report.gaps.LeftOut()},
               {"damaged_frames", report.leftOut.damaged},
               {"leaning_frames", report.leftOut.leaning}});
  } else if (end.videoFrames != 0) {
    PrintText(written, report);
  }
  if (isComplete) return kOk;
  Say(Reason(path, end) + "; " + HowFar(written, end));
  return end.state == EXPORT_STOPPED ? kInterrupted : kFailed;
}

}  // namespace recordctl
