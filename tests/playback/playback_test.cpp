#include "tests/playback/playback_test.h"

#include <ctime>

#include "base/clock.h"

namespace playback {

Consumer& Consumer::Get() {
  static auto* consumer = new Consumer;
  return *consumer;
}

void Consumer::Reset() {
  const std::lock_guard<std::mutex> lock(m_mutex);
  m_pushes.clear();
  m_decide = nullptr;
  m_params = m_seeks = 0;
}

void Consumer::OnPush(std::function<PlaybackPushResult(const Push&)> decide) {
  const std::lock_guard<std::mutex> lock(m_mutex);
  m_decide = std::move(decide);
}

PlaybackPushResult Consumer::Take(Push push) {
  std::function<PlaybackPushResult(const Push&)> decide;
  {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_pushes.push_back(push);
    decide = m_decide;
  }
  return decide ? decide(push) : BUF_OK;
}

PlaybackPushResult Consumer::Video(unsigned int, const char* frame, unsigned int length, unsigned long long ptsMs,
                                   int key) {
  return Get().Take({true, key != 0, ptsMs, fake::Clock::Get().RunUs() / 1000, std::string(frame, length)});
}

PlaybackPushResult Consumer::Audio(unsigned int, const char* frame, unsigned int length,
                                   unsigned long long ptsMs) {
  return Get().Take({false, false, ptsMs, fake::Clock::Get().RunUs() / 1000, std::string(frame, length)});
}

std::vector<Push> Consumer::Pushes(bool video) {
  const std::lock_guard<std::mutex> lock(m_mutex);
  std::vector<Push> found;
  for (const Push& push : m_pushes) {
    if (push.video == video) found.push_back(push);
  }
  return found;
}

std::vector<unsigned long long> Consumer::Times() {
  std::vector<unsigned long long> times;
  for (const Push& push : Pushes()) times.push_back(push.ptsMs);
  return times;
}

std::vector<std::string> Consumer::Payloads(bool video) {
  std::vector<std::string> payloads;
  for (const Push& push : Pushes(video)) payloads.push_back(push.payload);
  return payloads;
}

std::string Consumer::Intervals() {
  const std::vector<Push> pushes = Pushes();
  std::string text;
  for (size_t n = 1, run = 1; n < pushes.size(); ++n, ++run) {
    const long long interval = pushes[n].atMs - pushes[n - 1].atMs;
    if (n + 1 < pushes.size() && pushes[n + 1].atMs - pushes[n].atMs == interval) continue;
    text += (text.empty() ? "" : " ") + std::to_string(run) + "*" + std::to_string(interval);
    run = 0;
  }
  return text;
}

void PlaybackTest::AddFile(const std::string& name, std::uint32_t seconds, std::uint32_t firstStamp, bool audio) {
  kmvtest::File file;
  for (std::uint32_t at = 0; at < seconds * 1000; at += 40) {
    file.Video(at % 1000 == 0, firstStamp + at, name + " " + std::to_string(at));
    if (audio && at % 200 == 0) file.Audio(firstStamp + at, "sound");
  }
  file.Finish(seconds * 1000);
  AddFile(name, static_cast<double>(seconds), file);
}

long PlaybackTest::At(int hour, int minute, int second, int day) {
  struct tm local = record::CalendarTime(2024, 1, day, hour, minute, second);
  return static_cast<long>(mktime(&local));
}

std::unique_ptr<CPlaybackSession> PlaybackTest::Session(long time) {
  return std::make_unique<CPlaybackSession>(7, 0, time, Consumer::Params, Consumer::Video, Consumer::Audio,
                                            Consumer::SeekDone);
}

std::unique_ptr<CPlayFileSession> PlaybackTest::FileSession(const std::string& path) {
  return std::make_unique<CPlayFileSession>(7, path, Consumer::Params, Consumer::Video, Consumer::Audio,
                                            Consumer::SeekDone);
}

void PlaybackTest::Start(CPlaybackControls& session) {
  ASSERT_TRUE(m_clock.StartThread([&] { return session.Start() == 0; }));
}

void PlaybackTest::Stop(CPlaybackControls& session) {
  const fake::Clock::Pause pause;
  session.Stop();
}

bool PlaybackTest::AwaitEnd(CPlaybackControls& session, long long limitMs) {
  return m_clock.WatchUntil([&] { return !session.IsPlaying(); }, limitMs);
}

void PlaybackTest::PlayAll(CPlaybackControls& session) {
  Start(session);
  EXPECT_TRUE(AwaitEnd(session));
  Stop(session);
}

}  // namespace playback
