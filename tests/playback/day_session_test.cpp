#include "tests/playback/playback_test.h"

namespace playback {
namespace {

using ::testing::ElementsAre;

constexpr char kLast[] = "20240130/100500-av-2.kmv";

class DaySessionTest : public PlaybackTest {
 protected:
  // Two files in a row, a gap, and a file of the second stream.
  void MakeDay(bool audio = false) {
    AddFile(kFirst, 3, 5000, audio);
    AddFile(kSecond, 3, 0xfffffe00u, audio);  // its stamps wrap
    AddFile(kLast, 3, 70000, audio);
  }
  unsigned long long FirstPts(size_t from = 0) {
    const auto times = m_consumer.Times();
    return from < times.size() ? times[from] : 0;
  }
  static unsigned long long Ms(long seconds) { return static_cast<unsigned long long>(seconds) * 1000; }
};

// Every frame, at the very millisecond, over a file change and a gap (shown as a second).
TEST_F(DaySessionTest, EverySpeedHasItsPushTimes) {
  MakeDay();
  struct Case {
    int speed;
    const char* intervals;
  };
  for (const Case& each :
       {Case{1, "149*40 1*1000 74*40"}, Case{2, "149*20 1*1000 74*20"}, Case{4, "5*250 1*1000 2*250"},
        Case{8, "5*120 1*1000 2*120"}, Case{16, "5*60 1*1000 2*60"}, Case{-1, "149*40 1*1000 74*40"},
        Case{-2, "149*80 1*2000 74*80"}, Case{-16, "149*640 1*16000 74*640"}}) {
    SCOPED_TRACE(each.speed);
    m_consumer.Reset();
    const auto session = Session(At(10, 0, 0));
    each.speed > 0 ? session->Fast(each.speed) : session->Slow(-each.speed);
    PlayAll(*session);
    EXPECT_EQ(m_consumer.Intervals(), each.intervals);
    EXPECT_EQ(FirstPts(), Ms(At(10, 0, 0)));
    EXPECT_EQ(m_consumer.Times().back(), Ms(At(10, 5, 0)) + (each.speed >= 4 ? 2000 : 2960));
    EXPECT_EQ(m_consumer.ParamsCalls(), 1);
    EXPECT_EQ(m_consumer.SeeksDone(), 1);
    if (each.speed >= 4) {
      for (const Push& push : m_consumer.Pushes()) EXPECT_TRUE(push.key);
    }
  }
}

// A millisecond goes with every sound; the pictures keep to their times all the same.
TEST_F(DaySessionTest, SoundDoesNotMakePlaybackFaster) {
  AddFile(kFirst, 20, 5000, true);
  const auto session = Session(At(10, 0, 0));
  PlayAll(*session);
  const auto pushes = m_consumer.Pushes();
  ASSERT_EQ(pushes.size(), 500u);
  for (const Push& push : pushes) {
    const long long late = push.atMs - pushes[0].atMs - static_cast<long long>(push.ptsMs - pushes[0].ptsMs);
    ASSERT_GT(late, -10);
    ASSERT_LE(late, 0);
  }
  EXPECT_EQ(m_consumer.Pushes(false).size(), 100u);
}

// A push that takes long makes the next ones late, and they catch up; after two seconds the pace begins anew.
TEST_F(DaySessionTest, LatenessDoesNotAddUp) {
  AddFile(kFirst, 20);
  for (const int speed : {1, 2}) {
    m_consumer.Reset();
    m_consumer.OnPush([&](const Push& push) {
      const auto offset = push.ptsMs - Ms(At(10, 0, 0));
      if (offset % 1000 == 0) m_clock.Sleep(offset == 10000 ? 2000 : 150);
      return BUF_OK;
    });
    const auto session = Session(At(10, 0, 0));
    session->Fast(speed);
    PlayAll(*session);
    const auto pushes = m_consumer.Pushes();
    ASSERT_EQ(pushes.size(), 500u);
    for (size_t n = 0; n < 500; ++n) {
      const Push& first = pushes[n > 250 ? 251 : 0];
      const long long recorded = static_cast<long long>(pushes[n].ptsMs - first.ptsMs) / speed;
      const long long late = pushes[n].atMs - first.atMs - recorded;
      ASSERT_GE(late, 0) << n;
      ASSERT_LE(late, n % 25 == 0 || n % 25 > 10 ? 0 : 150) << n;
    }
  }
}

TEST_F(DaySessionTest, SpeedsAreCheckedAndSoundGoesWithNormalSpeedOnly) {
  MakeDay(true);
  const auto session = Session(At(10, 0, 0));
  for (const int speed : {17, -1}) {
    EXPECT_EQ(session->Fast(speed), 0);
    EXPECT_EQ(session->Slow(speed), 0);
  }
  EXPECT_EQ(m_platform.CountLogged("Invalid Fast speed\n\n"), 2);
  EXPECT_EQ(m_platform.CountLogged("Invalid slow speed\n\n"), 2);
  session->Fast(16);
  session->Fast(0);
  EXPECT_TRUE(m_platform.Logged("quit fast play\n\n"));
  session->Slow(1);
  PlayAll(*session);
  EXPECT_EQ(m_consumer.Intervals(), "149*40 1*1000 74*40");
  EXPECT_EQ(m_consumer.Pushes(false).size(), 0u);
}

TEST_F(DaySessionTest, SeeksFindTheirFile) {
  MakeDay();
  AddFile("20240129/230000-av-1.kmv", 2);
  const auto session = Session(At(10, 0, 4));
  Start(*session);
  const auto seekAndAwait = [&](long time) {
    const size_t before = m_consumer.Times().size();
    const int seeks = m_consumer.SeeksDone();
    session->Seek(time);
    EXPECT_TRUE(m_clock.WatchUntil(
        [&] { return m_consumer.SeeksDone() > seeks && m_consumer.Times().size() > before + 1; }, 100000));
    return before;
  };
  ASSERT_TRUE(m_clock.WatchUntil([&] { return !m_consumer.Times().empty(); }, 10000));
  EXPECT_EQ(FirstPts(), Ms(At(10, 0, 4)));
  EXPECT_TRUE(m_platform.Logged("seek " + std::to_string(At(10, 0, 4)) + " (offset 1) OK.\n"));

  seekAndAwait(At(9, 0, 0));  // before the first file
  EXPECT_TRUE(m_platform.Logged("\xa3\xac get " + FilePath(kFirst) + "\n"));
  EXPECT_TRUE(
      m_platform.Logged(kFirst + std::string(" seek ") + std::to_string(At(9, 0, 0)) + " (offset 0) OK.\n"));
  seekAndAwait(At(10, 1, 0));  // into the gap: the file before it, whose end is passed
  EXPECT_TRUE(m_platform.Logged(kSecond + std::string(" seek ") + std::to_string(At(10, 1, 0)) +
                                " (offset 57) failed.\n"));
  seekAndAwait(At(23, 0, 1, 29));  // another day
  EXPECT_TRUE(m_platform.Logged(", change DAY.\n"));
  EXPECT_EQ(m_consumer.Times().back() / 1000, static_cast<unsigned long long>(At(23, 0, 1, 29)));
  Stop(*session);

  m_consumer.Reset();
  const auto late = Session(At(22, 0, 0));  // behind the last file: nothing to play, and a seek plays again
  Start(*late);
  ASSERT_TRUE(AwaitEnd(*late));
  EXPECT_TRUE(m_platform.Logged(", search file failed\n"));
  EXPECT_THAT(m_consumer.Times(), ElementsAre());
  late->Seek(0);  // no point in time
  EXPECT_FALSE(late->IsPlaying());
  late->Seek(At(10, 5, 2));
  EXPECT_TRUE(late->IsPlaying());
  ASSERT_TRUE(m_clock.WatchUntil([&] { return !m_consumer.Times().empty(); }, 10000));
  EXPECT_EQ(FirstPts(), Ms(At(10, 5, 2)));
  long reported = 0;
  EXPECT_EQ(late->GetPlayTime(reported), 0);
  EXPECT_EQ(reported, At(22, 0, 0));
  Stop(*late);
}

TEST_F(DaySessionTest, OneVideoStopsAtItsEnd) {
  MakeDay();
  const auto session = Session(At(10, 0, 0));
  session->isPlayBackOneVideo();
  PlayAll(*session);
  EXPECT_EQ(m_consumer.Times().size(), 75u);
  EXPECT_TRUE(m_platform.Logged("Go NextFile failed.\n"));
}

// Files that cannot be taken at their word: torn, without packets, full of packets without bytes, and one that
// cannot be opened, at which the session idles.
TEST_F(DaySessionTest, DamagedFilesLeadToTheNextOne) {
  kmvtest::File torn;
  for (std::uint32_t at = 0; at < 1000; at += 40) torn.Video(at == 0, at, "torn");
  AddFile("20240130/090000-av-1.kmv", 1.0, torn);
  AddFile("20240130/090100-av-1.kmv", 1.0, kmvtest::File());
  kmvtest::File empty;
  for (std::uint32_t at = 0; at < 2000; ++at) empty.Video(at == 0, at, "");
  AddFile("20240130/090200-av-1.kmv", 1.0, empty);
  AddFile(kFirst, 3);
  AddFile("20240130/110000-av-1.kmv", 1);
  fake::WriteFile(FilePath("20240130/110000-av-1.kmv"), "no record");
  const auto session = Session(At(9, 0, 0));
  PlayAll(*session);
  EXPECT_EQ(m_consumer.Times().size(), 25u + 75u);
  EXPECT_TRUE(m_platform.Logged("110000-av-1.kmv failed!!!\n\n"));
  EXPECT_TRUE(m_platform.Logged("110000-av-1.kmv: open failed.\n"));
  EXPECT_EQ(m_platform.CountLogged("Go NextFile failed.\n"), 1);
  VIDEO_PARAM video;
  EXPECT_EQ(session->GetParams(&video, nullptr), 0);
  EXPECT_EQ(video.width, 1920u);
}

// The newest file of today grows while it is played, and the file after it is found when it is there.
TEST_F(DaySessionTest, TodaysFilesAreFoundWhileTheyGrow) {
  const std::string growing = "20240131/081450-av-1.kmv";
  kmvtest::File file;
  for (std::uint32_t at = 0; at < 2000; at += 40) file.Video(at % 1000 == 0, at, "begin");
  AddFile(growing, 600.0, file);
  std::atomic<bool> hasGrown{false};
  m_consumer.OnPush([&](const Push&) {
    if (hasGrown.exchange(true)) return BUF_OK;
    for (std::uint32_t at = 2000; at < 5000; at += 40) file.Video(at % 1000 == 0, at, "more");
    fake::WriteFile(FilePath(growing), file.Bytes());
    AddFile("20240131/081455-av-1.kmv", 1);
    return BUF_OK;
  });
  const auto session = Session(At(8, 14, 50, 31));
  PlayAll(*session);
  EXPECT_EQ(m_consumer.Times().size(), 125u + 25u);
  EXPECT_EQ(m_consumer.Times().back(), Ms(At(8, 14, 55, 31)) + 960);
}

TEST_F(DaySessionTest, AFullConsumerIsAskedTenTimes) {
  AddFile(kFirst, 1, 5000, true);
  m_consumer.OnPush([](const Push& push) { return push.ptsMs % 1000 == 400 ? BUF_FULL : BUF_OK; });
  const auto session = Session(At(10, 0, 0));
  PlayAll(*session);
  EXPECT_EQ(m_consumer.Pushes(true).size(), 25u + 9);
  EXPECT_EQ(m_consumer.Pushes(false).size(), 5u + 9);
  EXPECT_EQ(m_platform.CountLogged("return BUF_FULL. Speed=1\n"), 10);
  EXPECT_EQ(m_platform.CountLogged("Send Audio len 5 return BUF_FULL.\n"), 10);
  const auto pushes = m_consumer.Pushes();
  EXPECT_EQ(pushes[11].atMs - pushes[10].atMs, 500);
}

// In a nap of slow play and while a full consumer is given time; then it can be started again, from where it
// began.
TEST_F(DaySessionTest, StopIsHonouredWithinANap) {
  MakeDay();
  for (const PlaybackPushResult result : {BUF_OK, BUF_FULL}) {
    m_consumer.Reset();
    const auto session = Session(At(10, 0, 0));
    session->Slow(16);
    std::atomic<int> sleeps{0};
    std::atomic<long long> asked{0};
    m_consumer.OnPush([&](const Push&) {
      sleeps = 0;
      return result;
    });
    m_clock.OnSleep([&] {  // some way into the wait for the next push
      if (++sleeps != 20 || m_consumer.Times().size() < 3) return;
      asked = m_clock.RunUs();
      session->Stop();  // on the session's own thread, so that no time passes before it counts
    });
    Start(*session);
    ASSERT_TRUE(m_clock.WatchUntil([&] { return asked != 0 && !session->IsPlaying(); }, 100000));
    m_clock.OnSleep(nullptr);
    Stop(*session);
    EXPECT_LE(m_clock.RunUs() - asked, 10000);
    const size_t pushed = m_consumer.Times().size();
    m_consumer.OnPush(nullptr);
    Start(*session);
    ASSERT_TRUE(m_clock.WatchUntil([&] { return m_consumer.Times().size() > pushed; }, 100000));
    Stop(*session);
    EXPECT_EQ(FirstPts(pushed), Ms(At(10, 0, 0)));
  }
}

}  // namespace
}  // namespace playback
