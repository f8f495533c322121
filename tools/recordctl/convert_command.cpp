// recordctl convert
#include <sys/stat.h>

#include <filesystem>
#include <memory>

#include "record/storage.h"
#include "tools/recordctl/convert_clock.h"
#include "tools/recordctl/convert_source.h"
#include "tools/recordctl/convert_target.h"
#include "tools/recordctl/options.h"
#include "tools/recordctl/output.h"
#include "tools/recordctl/progress.h"
#include "tools/recordctl/record_state.h"
#include "tools/recordctl/signals.h"
#include "tools/recordctl/time_text.h"

namespace fs = std::filesystem;

namespace recordctl {
namespace {

constexpr char kConvertFooter[] =
    "Examples:\n"
    "  recordctl convert recordings/mnt/mmc0/manual/20260504/081500-av-1.kmv evening.mp4\n"
    "  recordctl convert old.avi new.kmv --audio alaw\n"
    "\n"
    "OUT's name tells the container. Nothing is encoded anew; OUT appears when it is whole. A file that lost its\n"
    "end is converted as far as it goes.";

constexpr long long kMostSilenceAtEndMs = 2000;  // between the last frame and the end that the side file tells

struct ConvertRequest {
  std::string in;
  std::string out;
  std::string audio;  // "", "ulaw", "alaw", "pcm" or "none"
  bool overwrite = false;
};

int AudioTypeAskedFor(const std::string& audio) {
  if (audio == "ulaw") return AUDIO_CODEC_G711_ULAW;
  if (audio == "alaw") return AUDIO_CODEC_G711_ALAW;
  return audio == "pcm" ? AUDIO_CODEC_PCM : AUDIO_CODEC_NONE;
}

// By its side file, its name, or when it was last written.
long long StartOf(const std::string& path, const SideFile& side) {
  if (side.state == SideFile::kRead && side.info.startSeconds != 0) return StartMs(side.info);
  const long long named = NamedStartMs(path);
  if (named >= 0) return named;
  struct stat status = {};
  stat(path.c_str(), &status);
  return static_cast<long long>(status.st_mtime) * 1000;
}

class Conversion {
 public:
  Conversion(const Options& options, const ConvertRequest& request, const RecordFile& in, Container to)
      : m_options(options),
        m_request(request),
        m_side(ReadSideFile(in.path)),
        m_startMs(StartOf(in.path, m_side)),
        m_clock(m_startMs),
        m_source(in, m_startMs),
        m_to(to),
        m_target(to, request.out),
        m_progress(ChosenProgress(options)) {}

  int Run() {
    const DeferSignals deferred;
    if (!m_target.Prepare()) return Fail(m_target.Error());
    if (!m_source.Open(m_request.in, AudioTypeAskedFor(m_request.audio))) return kFailed;
    RECORD_TASK_PARAM media = m_source.Media();
    if (m_request.audio == "none") media.audio_enable = 0;
    if (!FitMedia(m_to, media)) return kFailed;
    if (!m_target.Begin(media, m_source.Video())) return Fail(m_target.Error());
    const bool copied = CopyFrames(media.audio_enable > 0);
    if (WasInterrupted()) return kInterrupted;
    if (!copied || !EndFile()) return Fail(m_target.Error());
    Report();
    return kOk;
  }

 private:
  bool CopyFrames(bool withAudio) {
    // An MP4 file begins with a key frame.
    bool hasBegun = m_to != Container::kMp4;
    for (TimedFrame frame; !WasInterrupted() && m_source.Next(frame);) {
      hasBegun = hasBegun || frame.key;
      if (!hasBegun || (!frame.video && !withAudio)) continue;
      if (!m_target.Write(frame)) return false;
      Count(frame);
      if (m_progress.IsDue()) ShowProgress();
    }
    return true;
  }

  bool EndFile() {
    const Waiting waiting(m_options, "finishing " + m_request.out, "finish");
    const long long length = EndMs(m_side.info) - StartMs(m_side.info);
    if (m_side.state == SideFile::kRead && length <= ConvertClock::Elapsed() + kMostSilenceAtEndMs)
      ConvertClock::SetElapsed(length);
    return m_target.End() && m_target.Keep();
  }

  void Count(const TimedFrame& frame) {
    m_bytes += frame.length;
    if (!frame.video) return;
    if (!m_hasPicture) m_firstMs = frame.elapsedMs;
    m_hasPicture = true;
    m_lastMs = frame.elapsedMs;
  }

  void ShowProgress() {
    const long long whole = m_source.DurationSeconds() * 1000LL;
    const long long percent = whole > 0 ? std::min(100LL, ConvertClock::Elapsed() * 100 / whole) : 0;
    const std::string bytes = Grouped(static_cast<unsigned long long>(m_bytes));
    m_progress.Show("converting " + std::to_string(percent) + " %: " + bytes + " bytes",
                    {{"phase", "convert"},
                     {"percent", std::to_string(percent)},
                     {"elapsed", SecondsText(ConvertClock::Elapsed())},
                     {"bytes", std::to_string(m_bytes)}});
  }

  void Report() const {
    const RecordInfoStruct& info = m_target.Written();
    const long long span = m_lastMs - m_firstMs;
    if (m_options.json)
      WriteJson({{"path", m_request.out},
                 {"container", NameOf(m_to).name},
                 {"start", IsoTime(StartMs(info))},
                 {"end", IsoTime(EndMs(info))},
                 {"span_ms", span},
                 {"video_frames", info.videoFrames},
                 {"key_frames", info.keyFrames},
                 {"audio_frames", info.audioFrames},
                 {"bytes", m_bytes}});
    else
      WriteText("%s  %d video (%d key) and %d audio frames, %s bytes, %s s\n", Printable(m_request.out).c_str(),
                info.videoFrames, info.keyFrames, info.audioFrames,
                Grouped(static_cast<unsigned long long>(m_bytes)).c_str(), SecondsText(span).c_str());
  }

  const Options& m_options;
  const ConvertRequest& m_request;
  const SideFile m_side;
  const long long m_startMs;
  const ConvertClock m_clock;
  ConvertSource m_source;
  const Container m_to;
  ConvertTarget m_target;
  Progress m_progress;
  long long m_bytes = 0;
  bool m_hasPicture = false;
  long long m_firstMs = 0;
  long long m_lastMs = 0;
};

int Convert(const Options& options, const ConvertRequest& request) {
  const ContainerName* to = ContainerOfFile(request.out);
  if (to == nullptr) {
    Say(request.out + ": files are named .kmv, .avi or .mp4");
    return kUsage;
  }
  RecordFile in;
  if (!FindRecordFile(options, request.in, in)) return kFailed;
  if (IsBeingRecorded(in.path)) return Fail(request.in + ": is being recorded");
  std::error_code none;
  if (fs::equivalent(in.path, request.out, none))
    return Fail(request.out + ": is the file that is to be converted");
  if (!request.overwrite && fs::exists(request.out, none))
    return Fail(request.out + ": is there already (--overwrite replaces it)");
  return Conversion(options, request, in, to->container).Run();
}

}  // namespace

void AddConvertCommand(CLI::App& app, const Options& options, Action& action) {
  const auto request = std::make_shared<ConvertRequest>();
  CLI::App* command = app.add_subcommand("convert", "Put the frames of a record file into another container");
  command->footer(kConvertFooter);
  command->add_option("IN", request->in, "A record file")->required();
  command->add_option("OUT", request->out, "The file to make: .kmv, .avi or .mp4")->required();
  command
      ->add_option(
          "--audio", request->audio,
          "What the sound of an AVI file is, which it does not tell: ulaw, alaw or pcm; none: leave it out")
      ->check(CLI::IsMember({"ulaw", "alaw", "pcm", "none"}));
  command->add_flag("--overwrite", request->overwrite, "Replace OUT when it is there");
  command->callback(
      [&options, &action, request] { action = [&options, request] { return Convert(options, *request); }; });
}

}  // namespace recordctl
