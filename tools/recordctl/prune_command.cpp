// recordctl prune
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>

#include "storage/media.h"
#include "tools/recordctl/options.h"
#include "tools/recordctl/output.h"
#include "tools/recordctl/progress.h"
#include "tools/recordctl/prune_rule.h"
#include "tools/recordctl/pruner.h"
#include "tools/recordctl/root.h"
#include "tools/recordctl/signals.h"
#include "tools/recordctl/time_text.h"

namespace recordctl {
namespace {

constexpr char kPruneFooter[] =
    "Examples:\n"
    "  recordctl prune --keep-days 30 --dry-run\n"
    "  recordctl prune --free 2000\n"
    "\n"
    "Deletes record files with their side files, oldest first, on all mounted media. Files that are being "
    "recorded\n"
    "stay, and so does everything that is no recording.";

constexpr long long kMost = 1000000000;
constexpr int kMostDays = 36500;
constexpr size_t kMostNamed = 20;  // of the files that are no recordings, for people

struct PruneRequest {
  int keepDays = -1;
  long long freeMB = -1;
  long long keepNewest = -1;
  bool dryRun = false;
};

class Pruning {
 public:
  Pruning(const Options& options, const PruneRequest& request)
      : m_options(options),
        m_request(request),
        m_bases(record::MountedBases()),
        m_tree(m_bases),
        m_progress(ChosenProgress(options)) {}

  int Run() {
    const DeferSignals deferred;
    const std::unique_ptr<PruneRule> rule = MakeRule();
    const std::string refusal = rule->Refusal();
    if (!refusal.empty()) return Fail(refusal);
    OldestFirst recordings(m_tree);
    bool stopped = false;
    while (const Recording* recording = WasInterrupted() ? nullptr : recordings.Next()) {
      const PruneRule::Verdict verdict = rule->Judge(*recording);
      stopped = verdict == PruneRule::Verdict::kStop;
      if (stopped) break;
      if (verdict == PruneRule::Verdict::kDelete) Delete(*rule, *recording);
      ShowProgress();
    }
    m_pruner.Settle();
    PrintSum(FindOthers());
    if (WasInterrupted()) return kInterrupted;
    const std::string complaint = stopped ? "" : rule->Complaint();
    if (!complaint.empty()) return Fail(complaint);
    return m_failed > 0 ? kFailed : kOk;
  }

 private:
  std::unique_ptr<PruneRule> MakeRule() {
    const Waiting waiting(m_options, "looking for recordings", "prune");
    if (m_request.keepDays >= 0) return KeepDays(m_request.keepDays);
    if (m_request.keepNewest >= 0) return KeepNewest(m_tree, m_request.keepNewest);
    return KeepFree(m_bases, m_tree, m_request.freeMB, m_request.dryRun);
  }

  void Delete(PruneRule& rule, const Recording& recording) {
    const DeleteResult result = m_request.dryRun ? Pretend(recording) : m_pruner.Delete(recording);
    if (result == DELETE_IN_USE) {
      ++m_inUse;
      Print("in use", recording, "being recorded or played");
    } else if (result == DELETE_FAILED) {
      ++m_failed;
      Print("failed", recording, std::strerror(errno));
    } else {
      ++m_deleted;
      m_bytes += recording.bytes;
      Print(m_request.dryRun ? "would go" : "deleted", recording, rule.Reason());
      rule.NoteDeleted(recording);
    }
  }

  static DeleteResult Pretend(const Recording& recording) {
    return IsInUse(recording) ? DELETE_IN_USE : DELETE_DONE;
  }

  std::string Shown(const std::string& path) const { return ShownFile(m_options, path); }

  void Print(const char* action, const Recording& recording, const std::string& why) const {
    const std::string path = Shown(recording.Path());
    if (m_options.json) {
      WriteJson({{"path", path}, {"action", action}, {"bytes", recording.bytes}, {"reason", why}});
      return;
    }
    WriteText("%-9s %13s  %s  (%s)\n", action, Grouped(static_cast<unsigned long long>(recording.bytes)).c_str(),
              Printable(path).c_str(), why.c_str());
  }

  std::vector<std::string> FindOthers() {
    const Waiting waiting(m_options, "looking for other files", "prune");
    std::vector<std::string> shown;
    for (const std::string& path : m_tree.FindOthers()) shown.push_back(Shown(path));
    return shown;
  }

  void PrintSum(const std::vector<std::string>& others) const {
    if (m_options.json) {
      WriteJson({{"dry_run", m_request.dryRun},
                 {"deleted", m_deleted},
                 {"bytes", m_bytes},
                 {"in_use", m_inUse},
                 {"failed", m_failed},
                 {"other_files", others.size()},
                 {"others", others}});
      return;
    }
    const size_t named = std::min(others.size(), kMostNamed);
    for (size_t i = 0; i < named; ++i)
      WriteText("left      %13s  %s  (no recording)\n", "", Printable(others[i]).c_str());
    if (others.size() > named)
      WriteText("left      %13s  and %zu more that are no recordings\n", "", others.size() - named);
    WriteText("%lld recordings %s, %s bytes; %lld in use, %lld failed, %zu other files left alone\n", m_deleted,
              m_request.dryRun ? "would go" : "deleted", Grouped(static_cast<unsigned long long>(m_bytes)).c_str(),
              m_inUse, m_failed, others.size());
  }

  void ShowProgress() {
    if (!m_progress.IsDue()) return;
    m_progress.Show(
        "pruning: " + std::to_string(m_deleted) + " recordings, " +
            Grouped(static_cast<unsigned long long>(m_bytes)) + " bytes",
        {{"phase", "prune"}, {"deleted", std::to_string(m_deleted)}, {"bytes", std::to_string(m_bytes)}});
  }

  const Options& m_options;
  const PruneRequest& m_request;
  const std::vector<std::string> m_bases;
  RecordingsTree m_tree;
  Pruner m_pruner;
  Progress m_progress;
  long long m_deleted = 0;
  long long m_bytes = 0;
  long long m_inUse = 0;
  long long m_failed = 0;
};

int Prune(const Options& options, const PruneRequest& request) {
  if (!UseRoot(options)) return kFailed;
  if (record::MountedBases().empty()) return Fail("no medium in root " + options.root);
  return Pruning(options, request).Run();
}

}  // namespace

void AddPruneCommand(CLI::App& app, const Options& options, Action& action) {
  const auto request = std::make_shared<PruneRequest>();
  CLI::App* command = app.add_subcommand("prune", "Delete the oldest recordings");
  command->footer(kPruneFooter);
  CLI::Option_group* rule = command->add_option_group("what stays");
  rule->add_option("--keep-days", request->keepDays, "Recordings of today and the days before, so many in all")
      ->check(CLI::Range(1, kMostDays));
  rule->add_option("--free", request->freeMB, "Delete until so many MB are free on every medium")
      ->check(CLI::Range(1LL, kMost));
  rule->add_option("--keep-newest", request->keepNewest, "So many recordings, the newest")
      ->check(CLI::Range(0LL, kMost));
  rule->require_option(1);
  command->add_flag("--dry-run", request->dryRun, "Tell what would go and how much it frees, and do nothing");
  command->callback(
      [&options, &action, request] { action = [&options, request] { return Prune(options, *request); }; });
}

}  // namespace recordctl
