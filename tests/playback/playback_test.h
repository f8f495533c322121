// Record files of a day on the fake device, and a consumer that notes what is pushed and when.
#ifndef TESTS_PLAYBACK_PLAYBACK_TEST_H
#define TESTS_PLAYBACK_PLAYBACK_TEST_H

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "record/playback.h"
#include "tests/format/kmv_bytes.h"
#include "tests/query/catalogue_records.h"

namespace playback {

// Files in a row.
constexpr char kFirst[] = "20240130/100000-av-1.kmv";
constexpr char kSecond[] = "20240130/100003-av-1.kmv";

struct Push {
  bool video;
  bool key;
  unsigned long long ptsMs;
  long long atMs;  // run time
  std::string payload;
};

// The callbacks of sessions are plain functions: one consumer for all of them.
class Consumer {
 public:
  static Consumer& Get();
  void Reset();

  std::vector<Push> Pushes(bool video = true);
  std::vector<unsigned long long> Times();  // of the video pushes: their ptsMs
  std::vector<std::string> Payloads(bool video = true);
  // Time from push to push of the video frames, run-length coded: "24*40 1*1000".
  std::string Intervals();
  int ParamsCalls() const { return m_params; }
  int SeeksDone() const { return m_seeks; }
  // Decides on each frame, on the session's thread.
  void OnPush(std::function<PlaybackPushResult(const Push&)> decide);

  static void Params(unsigned int, const VIDEO_PARAM*, const AUDIO_PARAM*) { ++Get().m_params; }
  static PlaybackPushResult Video(unsigned int, const char* frame, unsigned int length, unsigned long long ptsMs,
                                  int key);
  static PlaybackPushResult Audio(unsigned int, const char* frame, unsigned int length, unsigned long long ptsMs);
  static void SeekDone(unsigned int) { ++Get().m_seeks; }

 private:
  PlaybackPushResult Take(Push push);

  std::mutex m_mutex;
  std::vector<Push> m_pushes;
  std::function<PlaybackPushResult(const Push&)> m_decide;
  std::atomic<int> m_params{0};
  std::atomic<int> m_seeks{0};
};

class PlaybackTest : public catalogue::CatalogueTest {
 protected:
  PlaybackTest() { m_consumer.Reset(); }
  ~PlaybackTest() override { m_consumer.OnPush(nullptr); }

  // A picture every 40 ms, a key frame a second, sound every 200 ms when `audio`; stamps begin at `firstStamp`.
  // Files are added in the order of time.
  void AddFile(const std::string& name, std::uint32_t seconds, std::uint32_t firstStamp = 5000,
               bool audio = false);
  void AddFile(const std::string& name, double seconds, const kmvtest::File& file) {
    AddRecord(name, seconds, file.Bytes());
  }
  void AddFile(const std::string& name, double seconds, const std::string& bytes) {
    AddRecord(name, seconds, bytes);
  }
  std::string FilePath(const std::string& name) { return Path(std::string(catalogue::kRoot) + "/" + name); }
  // Seconds since 1970 of a local time of the 30th of January 2024.
  static long At(int hour, int minute, int second, int day = 30);

  std::unique_ptr<CPlaybackSession> Session(long time);
  std::unique_ptr<CPlayFileSession> FileSession(const std::string& path);
  void Start(CPlaybackControls& session);
  void Stop(CPlaybackControls& session);  // while time goes on
  bool AwaitEnd(CPlaybackControls& session, long long limitMs = 1000000);
  void PlayAll(CPlaybackControls& session);

  Consumer& m_consumer = Consumer::Get();
};

}  // namespace playback

#endif
