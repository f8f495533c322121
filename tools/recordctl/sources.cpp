#include "tools/recordctl/sources.h"

#include "base/clock.h"
#include "tools/recordctl/output.h"
#include "tools/recordctl/progress.h"
#include "tools/recordctl/signals.h"

namespace recordctl {
namespace {

constexpr std::uintptr_t kProbeReader = 0x9e0be;  // no task's id, those are addresses of objects
constexpr int kSettleMs = 300;                    // until the rate of the audio frames is known
constexpr int kUsualFramerate = 25;

HostStreamInfoRecord InfoOf(int stream) {
  HostStreamInfoRecord info = {};
  HostStreamInfo(stream, &info);
  return info;
}

// Rate and codec of audio are known with its first frame.
void AwaitFirstFrames(int stream) {
  for (int waited = 0; waited < kSettleMs; waited += kPollMs) {
    const HostStreamInfoRecord info = InfoOf(stream);
    const bool hears = info.audioCodec < 0 || info.audioFramesPerSecond > 0;
    if ((info.state == HOST_STREAM_LIVE && info.videoFrames > 0 && hears) || info.state == HOST_STREAM_ENDED)
      return;
    record::SleepMs(kPollMs);
  }
}

}  // namespace

Sources::~Sources() {
  Close();
}

bool Sources::Open(const Options& options, int stream, const std::string& url, bool loop, bool noAudio) {
  HostStreamOptions wanted = {};
  wanted.loop = loop ? 1 : 0;
  wanted.noAudio = noAudio ? 1 : 0;
  int opened = -1;
  {
    const Waiting waiting(options, "opening the source", "opening");  // a dead camera takes ten seconds
    opened = HostStreamOpenWith(stream, url.c_str(), &wanted);
  }
  if (opened != 0) {
    const HostStreamInfoRecord info = InfoOf(stream);
    Say(info.error[0] != '\0' ? info.error : "cannot open " + url);
    return false;
  }
  m_open[stream] = true;
  const HostStreamInfoRecord info = InfoOf(stream);
  if (info.error[0] != '\0') Say(info.error);  // audio that is left out
  AwaitFirstFrames(stream);
  return true;
}

void Sources::Close() {
  for (int stream = 0; stream < kStreams; ++stream) {
    if (m_open[stream]) HostStreamClose(stream);
    m_open[stream] = false;
  }
}

void Sources::Describe(int stream, RECORD_TASK_PARAM& param) const {
  const HostStreamInfoRecord video = InfoOf(stream);
  param.stream = stream;
  param.video_enable = 1;
  param.video_type = video.videoCodec;
  param.width = video.width;
  param.height = video.height;
  param.bitrate = video.bitrate;
  param.framerate = video.framerate > 0 ? video.framerate : kUsualFramerate;
  const HostStreamInfoRecord audio = InfoOf(STREAM_MAIN);
  param.audio_type = audio.audioCodec;
  param.audio_enable = audio.audioCodec >= 0 ? 1 : 0;
  if (param.audio_enable == 0) return;
  param.samplerate = audio.samplerate;
  param.bits = audio.bits;
  param.channels = audio.channels;
  param.audio_param_a = audio.audioFramesPerSecond;
  // The bit rate, which nobody knows of AAC before it is over.
  if (audio.audioCodec != AUDIO_CODEC_AAC) param.audio_param_b = audio.samplerate * audio.bits * audio.channels;
}

Sources::Health Sources::Check(int stream) {
  const HostStreamInfoRecord info = InfoOf(stream);
  const bool lost = info.state == HOST_STREAM_CONNECTING;
  if (lost != m_lost[stream]) {
    const std::string why = info.error[0] != '\0' ? std::string(": ") + info.error : "";
    Say(lost ? "the camera went away, looking for it" + why : "the camera is back");
    m_lost[stream] = lost;
  }
  if (info.state == HOST_STREAM_FAILED) {
    Say(info.error[0] != '\0' ? info.error : "the source failed");
    return Health::kFailed;
  }
  return info.state == HOST_STREAM_ENDED ? Health::kEnded : Health::kFlows;
}

bool Sources::NewestStamp(int stream, std::uint32_t& stamp) {
  double lookBack = 0;
  if (GetStreamData(STREAM_REGISTER, stream, kProbeReader, &lookBack) < 0) return false;
  bool found = false;
  StreamFrame frame = {};
  while (GetStreamData(STREAM_READ, stream, kProbeReader, &frame) > 0) {
    stamp = static_cast<std::uint32_t>(static_cast<unsigned long long>(frame.timestampMs));
    found = true;
  }
  GetStreamData(STREAM_UNREGISTER, stream, kProbeReader, nullptr);
  return found;
}

}  // namespace recordctl
