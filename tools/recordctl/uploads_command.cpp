// recordctl uploads
#include <memory>
#include <vector>

#include "record_host/host.h"
#include "tools/recordctl/options.h"
#include "tools/recordctl/output.h"
#include "tools/recordctl/root.h"
#include "tools/recordctl/signals.h"
#include "tools/recordctl/time_text.h"
#include "tools/recordctl/upload_targets.h"

namespace recordctl {
namespace {

constexpr char kUploadsFooter[] =
    "Examples:\n"
    "  recordctl uploads\n"
    "  recordctl uploads --send\n"
    "\n"
    "State: due (waits for its turn, or is being sent); waiting (for its next attempt); sent; failed (given up).";

constexpr const char* kStates[] = {"due", "waiting", "sent", "failed"};

void Print(void* context, const HostUpload* upload) {
  const auto& options = *static_cast<const Options*>(context);
  if (options.json) {
    WriteJson({{"state", kStates[upload->state]},
               {"path", upload->path},
               {"target", upload->target},
               {"queued", IsoTime(upload->queuedMs)},
               {"at", upload->nextMs > 0 ? Json(IsoTime(upload->nextMs)) : Json(nullptr)},
               {"attempts_failed", upload->attempts},
               {"error", upload->error}});
    return;
  }
  const std::string error = upload->error[0] != '\0' && upload->state != HOST_UPLOAD_SENT ? upload->error : "";
  WriteText("%-7s  %s  %d  %s  %s%s%s\n", kStates[upload->state], IsoTime(upload->queuedMs).c_str(),
            upload->attempts, Printable(upload->path).c_str(), Printable(upload->target).c_str(),
            error.empty() ? "" : ": ", Printable(error).c_str());
}

int Send(const Options& options, const UploadRequest& request) {
  const DeferSignals deferred;
  UploadTargets targets;
  if (!targets.Understand(request)) return kUsage;
  HostUploadRetryNow();
  targets.StartAlways();
  Progress progress(ChosenProgress(options));
  const bool allSent = targets.AwaitAttempts(progress);
  if (WasInterrupted()) return kInterrupted;
  return allSent ? kOk : kFailed;
}

int Uploads(const Options& options, const UploadRequest& request, bool send) {
  if (!UseRoot(options)) return kFailed;
  if (send) return Send(options, request);
  Options shown = options;
  return HostUploadList(Print, &shown) == 0 ? kOk : Fail("the upload queue cannot be read");
}

}  // namespace

void AddUploadsCommand(CLI::App& app, const Options& options, Action& action) {
  const auto request = std::make_shared<UploadRequest>();
  const auto send = std::make_shared<bool>(false);
  CLI::App* command = app.add_subcommand("uploads", "List what is uploaded, and what waits for it");
  command->footer(kUploadsFooter);
  command->add_flag("--send", *send, "Try everything that waits now");
  AddCertificateOptions(*command, *request);
  command->callback([&options, &action, request, send] {
    action = [&options, request, send] { return Uploads(options, *request, *send); };
  });
}

}  // namespace recordctl
