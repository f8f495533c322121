// Files of one recording that share frames, played by everything that plays several: each frame is shown once.
#include <cstdlib>

#include "base/device_path.h"
#include "record/task.h"
#include "record/task_manager.h"
#include "tests/format/avi_bytes.h"
#include "tests/playback/replay_fixture.h"
#include "tests/support/recorded_file.h"

namespace playback {
namespace {

class SharedFramesTest : public ReplayTest {
 protected:
  // A recording of the streams that the fake has, of one file after the other, each with a look-back of `seconds`.
  void Record(int seconds, int files) {
    Mount(record::kFirstCard, 4000);
    m_streams.Plan(STREAM_MAIN).framesPerGroup = 25;
    m_streams.Plan(STREAM_MAIN).startMs = static_cast<double>(m_clock.WallMs() - 60000);
    for (int n = 0; n < files; ++n) {
      RECORD_TASK_PARAM param = fake::DefaultParam();
      param.duration = 5;
      param.pre_second = seconds;
      ASSERT_TRUE(fake::StartTask(std::make_unique<CKmvTask>(param, fake::DefaultConfig())));
      ASSERT_TRUE(fake::AwaitTasks(60000));
    }
    std::vector<std::pair<std::string, std::string>> listed;
    for (const std::string& path : fake::FilesIn(Path("/mnt/mmc0/schedule/20240131"), ".kmv"))
      listed.insert(listed.begin(), {catalogue::kRoot, path.substr(Path(catalogue::kRoot).size() + 1)});
    m_platform.ListRecords(listed);
    m_clock.StepWall(3600 * 1000);  // they are finished, and long ago
  }
  // What a recording of 25 pictures and 10 sounds a second has from one second to another. Two sounds in three are
  // alike; the first key frame of an MP4 file has the configuration in front.
  static std::string Avi(int fromSecond, int toSecond) {
    avitest::File file(true, VIDEO_CODEC_H264, 25);
    for (int n = fromSecond * 25; n < toSecond * 25; ++n) {
      file.Video(n % 25 == 0, Picture(n));
      if (n % 5 < 2) file.Audio(Sound(n / 5 * 2 + n % 5));
    }
    file.Finish();
    return file.Bytes();
  }
  static std::string Mp4(int fromSecond, int toSecond) {
    fake::Mp4Clip clip;
    clip.video.codec = VIDEO_CODEC_H264;
    clip.audio.enabled = 1;
    for (int n = fromSecond * 25; n < toSecond * 25; ++n) {
      const auto at = static_cast<unsigned>(n - fromSecond * 25) * 40;
      const std::string config = at == 0 ? std::string(20, 'c') : "";
      clip.frames.push_back({true, n % 25 == 0, at, config + Picture(n)});
      if (n % 5 < 2) clip.frames.push_back({false, false, at + 7, Sound(n / 5 * 2 + n % 5)});
    }
    return fake::Mp4Bytes(clip);
  }
  static std::string Picture(int n) { return std::string(80, static_cast<char>(n)) + "#" + std::to_string(n); }
  static std::string Sound(int n) { return n % 3 == 0 ? "sound #" + std::to_string(n) : "silence"; }
  static std::vector<int> Numbers(const std::vector<std::string>& frames) {
    std::vector<int> numbers;
    for (const std::string& frame : frames) {
      const size_t mark = frame.rfind('#');
      numbers.push_back(mark == std::string::npos ? -1 : std::atoi(frame.c_str() + mark + 1));
    }
    return numbers;
  }
  // Numbers of the stream's frames: in a row, each once.
  static void ExpectInARow(const std::vector<std::string>& pictures, size_t atLeast) {
    std::vector<long> numbers;
    for (const std::string& picture : pictures) numbers.push_back(std::atol(picture.c_str() + 3));
    ASSERT_GE(numbers.size(), atLeast);
    for (size_t n = 1; n < numbers.size(); ++n) ASSERT_EQ(numbers[n], numbers[n - 1] + 1) << "picture " << n;
  }
};

// Files of one recording begin with frames that the file before holds, too: each is shown once, in its order.
TEST_F(SharedFramesTest, EveryFrameOfARecordingIsShownOnce) {
  Record(3, 4);
  const auto recorded = fake::FilesIn(Path("/mnt/mmc0/schedule/20240131"), ".kmv");
  ASSERT_EQ(recorded.size(), 4u);
  size_t frames = 0;
  for (const std::string& path : recorded) frames += fake::ReadRecordedFile(path).packets.size();
  const long begin = static_cast<long>(m_clock.WallMs() / 1000) - 3600 - 30;

  const auto session = Session(begin);
  PlayAll(*session);
  const std::vector<std::string> pictures = m_consumer.Payloads();
  ExpectInARow(pictures, 500);
  EXPECT_GT(frames, pictures.size() + 100);  // so many were there twice

  // Nor do the key frames go back where the ones that two files share were skipped in the first one.
  m_consumer.Reset();
  const auto fast = Session(begin);
  fast->Fast(16);
  PlayAll(*fast);
  long last = -1;
  for (const std::string& picture : m_consumer.Payloads()) {
    const long number = std::atol(picture.c_str() + 3);
    EXPECT_GT(number, last);
    last = number;
  }

  EXPECT_EQ(ReadFrom(begin), pictures);
  EXPECT_EQ(PushedFrom(begin), pictures);
}

// The stamps of AVI and MP4 files count from their own begin: what neighbours share is told by its bytes. The
// files are named three seconds late, as with a look-back, and share as many, or they are named right and share
// nothing.
TEST_F(SharedFramesTest, EveryFrameIsShownOnceOverFilesWithoutStreamStamps) {
  struct Case {
    const char* extension;
    std::string (*make)(int, int);
    int lookBack;
  };
  for (const Case& each : {Case{"avi", Avi, 3}, Case{"mp4", Mp4, 3}, Case{"avi", Avi, 0}, Case{"mp4", Mp4, 0}}) {
    SCOPED_TRACE(each.extension + std::to_string(each.lookBack));
    m_platform.ListRecords({});
    for (int n = 0; n < 3; ++n) {
      const std::string second = std::to_string(100000 + 5 * n);
      AddFile("20240130/" + second + "-av-1." + each.extension, 5.0, each.make(5 * n, 5 * n + 5 + each.lookBack));
    }
    std::vector<int> all;
    std::vector<int> sounds;
    for (int n = 0; n < (15 + each.lookBack) * 25; ++n) all.push_back(n);
    for (int n = 0; n < (15 + each.lookBack) * 10; ++n) sounds.push_back(n % 3 == 0 ? n : -1);
    const auto play = [&](int speed) {
      m_consumer.Reset();
      const auto session = Session(At(10, 0, 0));
      session->Fast(speed);
      PlayAll(*session);
    };
    play(1);
    EXPECT_EQ(Numbers(m_consumer.Payloads()), all);
    EXPECT_EQ(Numbers(m_consumer.Payloads(false)), sounds);
    play(8);
    const std::vector<int> keys = Numbers(m_consumer.Payloads());
    EXPECT_GE(keys.size(), 15u);
    for (size_t n = 1; n < keys.size(); ++n) EXPECT_EQ(keys[n], keys[n - 1] + 25);

    EXPECT_EQ(Numbers(ReadFrom(At(10, 0, 0))), all);
    EXPECT_EQ(Numbers(PushedFrom(At(10, 0, 0))), all);
  }
}

}  // namespace
}  // namespace playback
