// The replayers: the one that is asked, the one that pushes, and the one that is given a file.
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <new>

#include "base/clock.h"
#include "base/device_path.h"
#include "base/time_word.h"
#include "storage/layout.h"
#include "tests/playback/replay_fixture.h"

namespace playback {
namespace {

using ::testing::ElementsAre;

constexpr char kLate[] = "20240130/101000-av-1.kmv";

TEST_F(ReplayTest, ReaderGoesFromFileToFile) {
  AddFile(kFirst, 3);
  AddFile(kSecond, 3);
  AddFile(kLate, 3);
  fake::WriteFile(InfoFile(kSecond), std::string(303, 'x'));  // the catalogue leaves it out
  TimelineReplayerReader reader(&m_search);
  int firstKeys = 0;
  EXPECT_THAT(ReadAll(reader, firstKeys), ElementsAre());
  EXPECT_TRUE(m_platform.Logged("m_pVideoFile is NULL!!!\n\n"));
  EXPECT_EQ(reader.open(At(11, 0, 0)), -1);
  EXPECT_TRUE(m_platform.Logged("Play 2024-01-30 11:00:00\n\n"));
  EXPECT_TRUE(m_platform.Logged("not find video file at this pos.\n\n"));
  ASSERT_EQ(reader.open(At(10, 0, 1)), 0);
  EXPECT_EQ(reader.get_start_timestamp(), static_cast<unsigned>(At(10, 0, 0)));
  const auto pictures = ReadAll(reader, firstKeys);
  ASSERT_EQ(pictures.size(), 50u + 75u);
  EXPECT_EQ(pictures[0], kFirst + std::string(" 1000"));
  EXPECT_EQ(pictures[50], kLate + std::string(" 0"));
  EXPECT_EQ(firstKeys, 2);
  EXPECT_EQ(pthread_mutex_trylock(&m_search), 0);  // nobody holds it
  pthread_mutex_unlock(&m_search);

  EXPECT_EQ(reader.GetFileDuration(FilePath(kLate).c_str()), 3);
  EXPECT_EQ(reader.GetFileDuration(FilePath(kSecond).c_str()), -1);
  EXPECT_EQ(reader.GetFileDuration("/nowhere"), -1);
  EXPECT_TRUE(m_platform.Logged("open /nowhere.info failed.\n"));
  EXPECT_TRUE(m_platform.Logged("Read RecordInfoStruct from " + FilePath(kSecond) + ".info failed.\n\n"));
  char* buffer = nullptr;
  unsigned int capacity = 0;
  EXPECT_EQ(reader.expandFrameBuf(&buffer, capacity, 262144), 0);
  EXPECT_EQ(capacity, 393216u);
  EXPECT_EQ(reader.expandFrameBuf(&buffer, capacity, 5), 0);
  EXPECT_EQ(capacity, 393216u);
  std::free(buffer);
}

// The side file says less than the catalogue takes from it: the same file would be found, and played, for ever.
TEST_F(ReplayTest, AFileIsNotFoundAgainAtItsOwnEnd) {
  kmvtest::File file;
  for (std::uint32_t at = 0; at < 1000; at += 5) file.Video(at == 0, at, "dense");
  file.Finish(1000);
  AddFile(kFirst, 1.0, file);
  fake::WriteFile(InfoFile(kFirst), Bytes(Info(kFirst, 1, 200)));  // corrected to 200 / 15 seconds
  AddFile(kLate, 1);
  EXPECT_EQ(ReadFrom(At(10, 0, 0)).size(), 200u + 25u);
}

TEST_F(ReplayTest, SuperReplayerPushesPacedAndMovesOn) {
  AddFile(kFirst, 3);
  AddFile(kSecond, 3);
  AddFile(kLate, 1);
  SuperReplayer replayer(this, &m_search, TakePush, Finished, false);
  m_replayer = &replayer;
  ASSERT_TRUE(m_clock.StartThread(
      [&] { return replayer.Open(static_cast<unsigned long long>(At(10, 0, 1)) * 1000) == 0; }));
  ASSERT_TRUE(AwaitFinished());
  const auto pushes = m_consumer.Pushes();
  // The second file is looked for a second behind the first one's end, and played from its begin all the same.
  ASSERT_EQ(pushes.size(), 50u + 75u + 25u);
  EXPECT_EQ(pushes[0].payload, kFirst + std::string(" 1000"));
  EXPECT_EQ(pushes[50].payload, kSecond + std::string(" 0"));
  EXPECT_EQ(pushes[125].ptsMs, static_cast<unsigned long long>(At(10, 10, 0)) * 1000);
  for (size_t n = 1; n < 50; ++n) EXPECT_NEAR(static_cast<double>(pushes[n].atMs - pushes[0].atMs), 40.0 * n, 10);
  EXPECT_EQ(m_firstFrames, 3);
  EXPECT_EQ(replayer.GetMedia().videoClass, 1);
  EXPECT_EQ(replayer.GetMedia().audioCode, 110);
  EXPECT_EQ(replayer.GetMedia().width, 1920u);
  EXPECT_EQ(m_finished, 1);
  const fake::Clock::Pause pause;
  replayer.Stop();
}

// The last file before midnight may end a moment, or long, before it: a lookup of that time finds nothing.
TEST_F(ReplayTest, MidnightIsPassedOver) {
  AddFile("20240130/235000-av-1.kmv", 3);
  kmvtest::File last;
  for (std::uint32_t at = 0; at < 2300; at += 100) last.Video(at % 1000 == 0, at, "last");
  last.Finish(2300);
  AddFile("20240130/235957-av-1.kmv", 2.3, last);
  AddFile("20240131/001000-av-1.kmv", 1);
  EXPECT_EQ(ReadFrom(At(23, 50, 0)).size(), 75u + 23u + 25u);

  m_platform.ListRecords({});
  AddFile("20240130/235000-av-1.kmv", 3);
  AddFile("20240130/235003-av-1.kmv", 1);  // over where it is looked for
  AddFile("20240131/001000-av-1.kmv", 1);
  EXPECT_EQ(PushedFrom(At(23, 50, 0)).size(), 75u + 25u + 25u);
}

// A `long` of 32 bits is read unsigned.
TEST_F(ReplayTest, DaysBehind2038ArePlayed) {
  AddFile("20390501/100000-av-1.kmv", 3);
  const long long begin = record::FromLocalTime(record::CalendarTime(2039, 5, 1, 10, 0, 1));
  const auto session = Session(record::ToTimeWord(begin));
  EXPECT_TRUE(session->IsSameDay(record::ToTimeWord(begin), record::ToTimeWord(begin + 3600)));
  PlayAll(*session);
  ASSERT_EQ(m_consumer.Times().size(), 50u);
  EXPECT_EQ(m_consumer.Times()[0], static_cast<unsigned long long>(begin) * 1000);
  EXPECT_EQ(ReadFrom(record::ToTimeWord(begin)).size(), 50u);
}

// What a replayer tells of one file.
struct Count {
  static inline std::atomic<int> ends, pictures, keys, lastMs;
  static inline int withoutMemory = 0;  // the picture at which memory runs out; 0: none

  static void From(CReplayer& replayer, int failingPicture = 0) {
    ends = pictures = keys = lastMs = 0;
    withoutMemory = failingPicture;
    replayer.SetCallbacks(
        nullptr, [](ReplayContext) { return ++ends, 0; },
        [](ReplayContext, char*, int, int offsetMs, int isKey) {
          keys += isKey;
          lastMs = offsetMs;
          if (++pictures == withoutMemory) throw std::bad_alloc();
          return 0;
        },
        nullptr);
  }
};

// Its lock file tells that a file is being recorded as long as its recorder holds it; a crash leaves it behind.
TEST_F(ReplayTest, ReplayerFollowsUntilTheRecorderHasGone) {
  kmvtest::File file;
  const auto bytes = [&](std::uint32_t from, std::uint32_t to) {
    for (std::uint32_t at = from; at < to; at += 40) file.Video(at % 1000 == 0, at, "x");
    return file.Bytes();
  };
  const std::string before = bytes(0, 2000);
  AddFile(kFirst, 2.0, before);
  const std::string lockFile = record::LockFilePath(kFirst);
  fake::WriteFile(lockFile, "");
  const int lock = open(lockFile.c_str(), O_RDWR | O_CLOEXEC);
  ASSERT_EQ(flock(lock, LOCK_EX | LOCK_NB), 0);
  std::string path = FilePath(kFirst);
  CReplayer replayer(path.data(), 0, true);
  Count::From(replayer);
  ASSERT_TRUE(m_clock.StartThread([&] { return replayer.Start() == 0; }));
  m_clock.Sleep(10000);
  EXPECT_EQ(Count::pictures, 50);
  const std::string more = bytes(2000, 3000).substr(before.size());
  const int growing = open(path.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC);
  EXPECT_EQ(write(growing, more.data(), more.size()), static_cast<ssize_t>(more.size()));
  close(growing);
  m_clock.Sleep(5000);
  EXPECT_EQ(Count::pictures, 75);
  EXPECT_EQ(Count::ends, 0);
  close(lock);
  m_clock.Sleep(2000);
  EXPECT_EQ(Count::ends, 1);
  EXPECT_EQ(access(lockFile.c_str(), F_OK), 0);
  const fake::Clock::Pause pause;
  replayer.Stop();
}

TEST_F(ReplayTest, WithoutMemoryTheEndIsTold) {
  AddFile(kFirst, 1);
  AddFile(kSecond, 1);
  std::string path = FilePath(kFirst);
  CReplayer replayer(path.data(), 0, true);
  Count::From(replayer, 3);
  ASSERT_TRUE(m_clock.StartThread([&] { return replayer.Start() == 0; }));
  m_clock.Sleep(3000);
  EXPECT_EQ(Count::ends, 1);
  EXPECT_EQ(Count::pictures, 3);
  replayer.Seek(0);
  m_clock.Sleep(3000);
  EXPECT_EQ(Count::ends, 2);
  EXPECT_EQ(Count::pictures, 3 + 25);
  {
    const fake::Clock::Pause pause;
    replayer.Stop();
  }

  m_platform.OnLog([](const std::string& line) {
    if (line.find("100003-av-1.kmv \n") != std::string::npos) throw std::bad_alloc();
  });
  EXPECT_EQ(PushedFrom(At(10, 0, 0)).size(), 25u);
  m_platform.OnLog(nullptr);
}

TEST_F(ReplayTest, ReplayerSeeksPausesAndSkips) {
  AddFile(kFirst, 10);
  std::string path = FilePath(kFirst);
  CReplayer replayer(path.data(), 0, false);
  Count::From(replayer);
  EXPECT_EQ(replayer.Fast(17), -1);
  EXPECT_EQ(replayer.Fast(4), 0);
  replayer.Pause();
  ASSERT_TRUE(m_clock.StartThread([&] { return replayer.Start() == 0; }));
  m_clock.Sleep(5000);
  EXPECT_EQ(Count::pictures, 0);
  const auto playToEnd = [&] {
    const int ends = Count::ends;
    replayer.Resume();
    EXPECT_TRUE(m_clock.WatchUntil([&] { return Count::ends > ends; }, 100000));
    replayer.Pause();
  };
  playToEnd();
  EXPECT_EQ(Count::pictures, 10);
  EXPECT_EQ(Count::keys, 10);
  replayer.Fast(0);
  replayer.SeekByPercent(80);
  playToEnd();
  EXPECT_EQ(Count::pictures, 10 + 50);
  replayer.SeekByPercent(100);  // the last second
  playToEnd();
  EXPECT_EQ(Count::pictures, 10 + 50 + 25);
  replayer.Seek(3600);  // behind the end
  m_clock.Sleep(1000);
  EXPECT_EQ(Count::ends, 3);
  EXPECT_EQ(Count::lastMs, 9960);
  const fake::Clock::Pause pause;
  replayer.Stop();
}

}  // namespace
}  // namespace playback
