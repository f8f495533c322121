// A camera or a file that feeds streams of the hub from a thread of its own.
#ifndef PLATFORM_HOST_MEDIA_SOURCE_H
#define PLATFORM_HOST_MEDIA_SOURCE_H

#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "platform/host/media_input.h"
#include "platform/host/packet_shaper.h"
#include "platform/host/stream_hub.h"
#include "platform/host/timeline.h"
#include "record_host/host.h"

namespace record {

class MediaSource {
 public:
  MediaSource(int stream, const std::string& url, const HostStreamOptions& options);
  ~MediaSource();
  MediaSource(const MediaSource&) = delete;
  MediaSource& operator=(const MediaSource&) = delete;

  // Opens the source on the caller's thread and starts the feeding thread. False: Info gives the reason.
  bool Start();
  // Ends whatever goes on, Start on another thread included, joins the thread, clears the streams. Once.
  void Stop();
  HostStreamInfoRecord Info();

 private:
  enum class PassEnd { Stopped, EndOfInput, Lost, Failed };

  bool OpenInput(std::string* error);
  bool PrepareVideo(std::string* error);
  void PrepareAudio();
  void DescribeInput();

  void Run();
  bool RunPass();
  PassEnd ReadToEnd();
  PassEnd AfterReadError(int error, int* inARow);
  bool HandlePacket(AVPacket* packet);
  void PublishVideo(AVPacket* packet);
  void PublishAudio(AVPacket* packet);
  void PublishConfig();
  void ClearStreams();
  bool Reconnect();
  bool GiveUp(const std::string& error);  // false, for the thread to end
  bool VideoIsSilent() const;

  Timeline::Stamp StampOf(Timeline::Track track, const AVStream* stream, const AVPacket* packet,
                          double durationMs);
  double WallMs() const;
  void Pace(double stampMs);
  bool Rest(unsigned long long milliseconds);  // false: stopped
  void SetState(int state, const std::string& error);
  void Note(const std::string& error);

  // Constant after construction.
  const int m_stream;
  const std::string m_url;
  const HostStreamOptions m_options;
  HubStream* const m_videoHub;
  HubStream* const m_audioHub;  // null: the source's audio is left alone

  std::atomic<bool> m_stop{false};
  std::mutex m_stopMutex;  // guards m_thread; m_stopped tells of m_stop
  std::condition_variable m_stopped;
  std::thread m_thread;

  std::mutex m_infoMutex;
  HostStreamInfoRecord m_info = {};  // guarded by m_infoMutex

  // The feeding thread's (Start's before it runs).
  std::unique_ptr<MediaInput> m_input;
  std::unique_ptr<VideoShaper> m_video;
  std::unique_ptr<AudioShaper> m_audio;
  std::unique_ptr<Timeline> m_timeline;
  Bytes m_publishedConfig;
  int m_videoLost = 0;
  int m_audioLost = 0;
  double m_reorderMs = -1;  // how far decoding is ahead of showing; below 0: not known yet
  double m_frameMs = 0;     // nominal distance of two video frames
  std::int64_t m_passFrames = 0;
  static constexpr unsigned long long kFirstPauseMs = 250;
  unsigned long long m_pauseMs = kFirstPauseMs;  // before the next attempt to connect
  unsigned long long m_lastVideoAt = 0;          // run time, ms
  bool m_isPacing = false;
  double m_paceStampMs = 0;
  unsigned long long m_paceRunMs = 0;
};

}  // namespace record

#endif
