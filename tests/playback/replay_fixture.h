// What the tests of the replayers share: the one that is asked, and the one that pushes.
#ifndef TESTS_PLAYBACK_REPLAY_FIXTURE_H
#define TESTS_PLAYBACK_REPLAY_FIXTURE_H

#include <atomic>
#include <string>
#include <vector>

#include "record/replay.h"
#include "tests/playback/playback_test.h"

namespace playback {

class ReplayTest : public PlaybackTest {
 protected:
  pthread_mutex_t m_search = PTHREAD_MUTEX_INITIALIZER;

  // What `reader` gives until its end: payloads of the pictures.
  static std::vector<std::string> ReadAll(TimelineReplayerReader& reader, int& firstKeys) {
    std::vector<std::string> pictures;
    char* frame = nullptr;
    long isVideo = 0;
    long isKey = 0;
    unsigned long offsetMs = 0;
    bool firstKey = false;
    int length = 0;
    while ((length = reader.read(&frame, isVideo, isKey, offsetMs, firstKey)) >= 0) {
      firstKeys += firstKey;
      if (isVideo != 0) pictures.emplace_back(frame, static_cast<size_t>(length));
    }
    return pictures;
  }

  static int TakePush(void* context, bool firstFrame, int isVideo, char* frame, int length,
                      unsigned long long ptsMs, int) {
    auto& test = *static_cast<ReplayTest*>(context);
    test.m_firstFrames += firstFrame;
    if (firstFrame && test.m_replayer) {
      EXPECT_EQ(test.m_replayer->GetMedia().width, 1920u);
    }
    if (isVideo != 0) Consumer::Video(0, frame, static_cast<unsigned>(length), ptsMs, 0);
    return 0;
  }
  static int Finished(void* context) {
    ++static_cast<ReplayTest*>(context)->m_finished;
    return 0;
  }

  // A replayer that has told of its end naps, and time flies, until the next one is begun on another thread: on a
  // busy machine it flies far.
  bool AwaitFinished() {
    return m_clock.WatchUntil([&] { return m_finished != 0; }, 1LL << 40);
  }

  // The payloads of the pictures from `begin` on to the end, asked for and pushed.
  std::vector<std::string> ReadFrom(long begin) {
    TimelineReplayerReader reader(&m_search);
    EXPECT_EQ(reader.open(begin), 0);
    int firstKeys = 0;
    return ReadAll(reader, firstKeys);
  }
  std::vector<std::string> PushedFrom(long begin) {
    m_consumer.Reset();
    m_finished = 0;
    SuperReplayer replayer(this, &m_search, TakePush, Finished, false);
    EXPECT_TRUE(
        m_clock.StartThread([&] { return replayer.Open(static_cast<unsigned long long>(begin) * 1000) == 0; }));
    EXPECT_TRUE(AwaitFinished());
    const fake::Clock::Pause pause;
    replayer.Stop();
    return m_consumer.Payloads();
  }

  SuperReplayer* m_replayer = nullptr;
  int m_firstFrames = 0;
  std::atomic<int> m_finished{0};
};

}  // namespace playback

#endif
