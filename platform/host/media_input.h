// One opened camera or file: libavformat with deadlines, errors in words, and the two streams that matter.
#ifndef PLATFORM_HOST_MEDIA_INPUT_H
#define PLATFORM_HOST_MEDIA_INPUT_H

#include <atomic>
#include <memory>
#include <string>

#include "platform/host/av_handles.h"

namespace record {

struct InputRequest {
  std::string url;
  bool wantsAudio;
  int openTimeoutMs;
  int silenceTimeoutMs;
  const std::atomic<bool>* stop;  // set: whatever blocks returns soon
};

class MediaInput {
 public:
  // Null on failure, with the reason in `error`.
  static std::unique_ptr<MediaInput> Open(const InputRequest& request, std::string* error);

  MediaInput(const MediaInput&) = delete;
  MediaInput& operator=(const MediaInput&) = delete;

  // As av_read_frame; AVERROR(ETIMEDOUT) when a live source is silent for too long, AVERROR_EXIT on stop.
  int Read(AVPacket* packet);

  bool IsLive() const { return m_isLive; }
  const AVStream* Video() const { return m_video; }
  const AVStream* Audio() const { return m_audio; }  // null: none
  AVFormatContext* Context() const { return m_context.get(); }
  // Wall clock, milliseconds: a live source has been sending since then.
  double OpenedAtMs() const { return m_openedAtMs; }

 private:
  explicit MediaInput(const InputRequest& request);

  static int ShouldInterrupt(void* self);
  int Connect();
  bool ChooseStreams(std::string* error);
  std::string Reason(int code) const;
  void SetDeadline(int milliseconds);

  const InputRequest m_request;
  const bool m_isNetwork;
  unsigned long long m_deadline = 0;  // 0: none
  AvInput m_context;
  bool m_isLive = false;
  double m_openedAtMs = 0;
  const AVStream* m_video = nullptr;
  const AVStream* m_audio = nullptr;
};

// The URL without user name and password, for texts that people read.
std::string PublicUrl(const std::string& url);
double SystemWallMs();

}  // namespace record

#endif
