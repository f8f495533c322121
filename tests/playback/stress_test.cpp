// Sessions started, sought, paused, sped up and destroyed at random while two tasks record the same day: two
// seconds, or as many as RECORD_STRESS_SECONDS says. What the sanitizers say is what it is for.
#include <chrono>
#include <cstdlib>
#include <random>

#include "base/device_path.h"
#include "record/replay.h"
#include "record/task_manager.h"
#include "tests/playback/playback_test.h"
#include "tests/support/recorded_file.h"

namespace playback {
namespace {

class StressTest : public PlaybackTest {
 protected:
  std::mt19937 m_random{4711};
  std::atomic<long> m_begun{0};

  int Below(int limit) { return static_cast<int>(m_random() % static_cast<unsigned>(limit)); }

  void KeepTwoTasksRecording() {
    if (TaskManagerGetTaskCount(RECORD_KIND_SCHEDULE, -1) < 2) {
      RECORD_TASK_PARAM param = fake::DefaultParam();
      param.stream = Below(2);
      param.duration = 20;
      fake::StartTask(std::make_unique<CKmvTask>(param, fake::DefaultConfig()));
    }
    std::vector<std::pair<std::string, std::string>> listed;
    for (const std::string& path : fake::FilesIn(Path(catalogue::kRoot), ""))
      for (const std::string& file : fake::FilesIn(path, ".kmv"))
        listed.insert(listed.begin(), {catalogue::kRoot, file.substr(Path(catalogue::kRoot).size() + 1)});
    if (listed.size() > 20) listed.resize(20);
    m_platform.ListRecords(listed);
  }

  void Disturb(CPlaybackSession& session) {
    PlaybackFileInfo info;
    const std::function<void()> things[] = {
        [&] { session.Start(); },
        [&] { session.Seek(m_begun + Below(120) - 20); },
        [&] { session.Fast(Below(18)); },
        [&] { session.Slow(Below(4)); },
        [&] { Below(2) != 0 ? session.Pause() : session.UnPause(); },
        [&] { session.SeekNextIFrame(); },
        [&] { session.GetPlaybackFileInfo(info), session.GetPlayingFile(); },
        [&] { session.IsPlaying(), session.GetParams(nullptr, nullptr); },
        [&] { session.Stop(); },
    };
    things[Below(9)]();
  }
};

TEST_F(StressTest, SessionsWhileTasksRecord) {
  const char* wanted = std::getenv("RECORD_STRESS_SECONDS");
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(wanted ? std::atoi(wanted) : 2);
  Mount(record::kFirstCard, 4000);
  for (const int stream : {STREAM_MAIN, STREAM_SUB})
    m_streams.Plan(stream).startMs = static_cast<double>(m_clock.WallMs() - 60000);
  m_begun = static_cast<long>(m_clock.WallMs() / 1000);
  m_platform.keepLog = false;
  m_clock.RunFree(20);
  m_consumer.OnPush([](const Push& push) {
    if (push.ptsMs % 7919 == 0) return BUF_FULL;
    return BUF_OK;
  });
  pthread_mutex_t search = PTHREAD_MUTEX_INITIALIZER;
  const auto push = [](void*, bool, int, char*, int, unsigned long long, int) { return 0; };
  std::unique_ptr<CPlaybackSession> sessions[4];
  std::unique_ptr<SuperReplayer> replayer;
  ::testing::internal::CaptureStdout();
  while (std::chrono::steady_clock::now() < end) {
    KeepTwoTasksRecording();
    for (int n = 0; n < 20; ++n) {
      auto& session = sessions[Below(4)];
      if (!session || Below(8) == 0) session = Session(m_begun + Below(60));
      Disturb(*session);
      if (n % 5 == 0) m_consumer.Reset();
    }
    if (!replayer || Below(4) == 0)
      replayer = std::make_unique<SuperReplayer>(nullptr, &search, push, nullptr, false);
    Below(3) != 0 ? static_cast<void>(replayer->Open(static_cast<unsigned long long>(m_begun + Below(60)) * 1000))
                  : replayer->Stop();
  }
  for (auto& session : sessions) session.reset();
  replayer.reset();
  EXPECT_TRUE(fake::AwaitTasks(2000000));
  ::testing::internal::GetCapturedStdout();
  EXPECT_GE(m_clock.WallMs() / 1000, m_begun);
}

}  // namespace
}  // namespace playback
