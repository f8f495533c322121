#include <chrono>
#include <thread>

#include "tests/playback/playback_test.h"
#include "tests/support/thread_count.h"

namespace playback {
namespace {

constexpr char kName[] = "20240130/100000-av-1.kmv";

using FileSessionTest = PlaybackTest;

TEST_F(FileSessionTest, PlaysOneFileOnceWithTimesOfItsOwn) {
  AddFile(kName, 2, 5000, true);
  AddFile("20240130/100002-av-1.kmv", 2);
  const auto session = FileSession(FilePath(kName));
  PlayAll(*session);
  EXPECT_EQ(m_consumer.Times().size(), 50u);
  EXPECT_EQ(m_consumer.Times().back(), 1960u);
  EXPECT_EQ(m_consumer.SeeksDone(), 0);
  EXPECT_TRUE(m_platform.Logged("read finished: " + FilePath(kName) + "\n"));
  EXPECT_TRUE(m_platform.Logged(kName + std::string(", session 7 playback finished, spend ")));
}

TEST_F(FileSessionTest, SeeksWithinTheFile) {
  AddFile(kName, 4);
  const auto session = FileSession(FilePath(kName));
  session->Seek(3);
  m_consumer.OnPush([&](const Push&) {
    if (m_consumer.Times().size() == 5) session->Seek(-1);  // below the file time
    if (m_consumer.Times().size() == 6) session->Seek(0);
    return BUF_OK;
  });
  Start(*session);
  ASSERT_TRUE(AwaitEnd(*session));
  EXPECT_EQ(m_consumer.Times().size(), 6u + 100u);
  unsigned long fileTime = 1;
  EXPECT_EQ(session->GetPlaybackFileTime(fileTime), 0);
  EXPECT_EQ(fileTime, 0u);
  EXPECT_EQ(m_consumer.Times().front(), 3000u);
  EXPECT_EQ(m_consumer.SeeksDone(), 2);
  EXPECT_TRUE(m_platform.Logged(kName + std::string("\xa3\xba seektime -1 is not in [0 0]\n")));
  session->Seek(1);
  EXPECT_FALSE(session->IsPlaying());  // too late
  Stop(*session);
}

TEST_F(FileSessionTest, TellsWhatItCannotPlay) {
  ::testing::internal::CaptureStdout();
  const auto none = FileSession("/nowhere.kmv");
  PlayAll(*none);
  EXPECT_EQ(::testing::internal::GetCapturedStdout(), "m_szFileName is noEixist==/nowhere.kmv\n");
  fake::WriteFile(Path("/clip.Mp4"), "");
  const auto strange = FileSession(Path("/clip.Mp4"));
  PlayAll(*strange);
  EXPECT_TRUE(m_platform.Logged("not support " + Path("/clip.Mp4") + "\n\n"));
  EXPECT_TRUE(m_platform.Logged("clip.Mp4: open failed.\n"));
}

// A camera that sends a picture every five seconds: once that is clear, a second each.
TEST_F(FileSessionTest, SparseStreamsAreShownASecondAPicture) {
  kmvtest::File file;
  for (std::uint32_t n = 0; n < 8; ++n) file.Video(true, n * 800, "now and then");
  for (std::uint32_t n = 0; n < 8; ++n) file.Video(true, 5600 + n * 40, "moving");
  AddFile(kName, 6.0, file);
  const auto session = FileSession(FilePath(kName));
  session->SetAovMode();
  PlayAll(*session);
  EXPECT_EQ(m_consumer.Intervals(), "1*0 2*800 4*1000 1*0 2*1000 5*40");
}

// From every callback: stopping, and every other operation, blocks nobody; the session may even be deleted there.
TEST_F(FileSessionTest, EverythingMayBeCalledInsideACallback) {
  AddFile(kName, 2);
  std::unique_ptr<CPlaybackSession> session = Session(At(10, 0, 0));
  m_consumer.OnPush([&](const Push& push) {
    session->SeekNextIFrame();
    PlaybackFileInfo info;
    session->GetPlaybackFileInfo(info);
    EXPECT_EQ(info.nStartTimestamp, static_cast<std::uint32_t>(At(10, 0, 0)));
    EXPECT_EQ(info.nDuration, 2u);
    EXPECT_EQ(info.nStartSecond, 2u);
    EXPECT_EQ(session->GetFrameStamp(), 5000 + push.ptsMs % 1000);
    EXPECT_EQ(session->GetPlayingFile(), FilePath(kName));
    EXPECT_EQ(session->Start(), 0);
    session->Stop();
    return BUF_OK;
  });
  ::testing::internal::CaptureStdout();
  Start(*session);
  ASSERT_TRUE(AwaitEnd(*session));
  EXPECT_EQ(::testing::internal::GetCapturedStdout(), "nFileStartSecond==2\n");
  EXPECT_EQ(m_consumer.Times().size(), 1u);
  Stop(*session);

  m_consumer.OnPush([&](const Push&) {
    session.reset();
    return BUF_OK;
  });
  CPlaybackSession* raw = session.get();
  Start(*raw);
  m_clock.SleepUntil([&] { return m_platform.CountLogged("exited main loop.\n\n") == 2; }, 10000);
  EXPECT_EQ(session, nullptr);
}

// No descriptor (the fixture counts them), no thread and no byte (the leak checker counts those).
TEST_F(FileSessionTest, AThousandSessionsLeaveNothing) {
  AddFile(kName, 1);
  std::thread([] {}).join();  // the thread checker starts one of its own beside the first
  const std::ptrdiff_t before = fake::ThreadCount();
  m_platform.keepLog = false;
  for (int n = 0; n < 500; ++n) {
    auto day = Session(At(10, 0, 0));
    auto file = FileSession(FilePath(kName));
    day->Start();
    file->Start();
    if (n % 2 == 0) file->Seek(n % 4);
    if (n % 3 == 0) Stop(*day);
    {
      const fake::Clock::Pause pause;
      day.reset();
    }
    const fake::Clock::Pause pause;
    file.reset();
  }
  m_platform.keepLog = true;
  // One that was joined may be listed for an instant yet.
  const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  while (fake::ThreadCount() > before && std::chrono::steady_clock::now() < limit) std::this_thread::yield();
  EXPECT_LE(fake::ThreadCount(), before);
}

}  // namespace
}  // namespace playback
