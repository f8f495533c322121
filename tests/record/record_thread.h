// A device with a card and a stream that has run for a minute, on which a record thread runs from start to exit
// under a clock that the test owns.
#ifndef TESTS_RECORD_RECORD_THREAD_H
#define TESTS_RECORD_RECORD_THREAD_H

#include <cstdint>
#include <memory>
#include <numeric>
#include <string>
#include <vector>

#include "record/pre_record.h"
#include "record/task_manager.h"
#include "tests/support/device_test.h"
#include "tests/support/recorded_file.h"

namespace recordtest {

inline std::vector<std::int64_t> Range(std::int64_t first, std::int64_t last) {
  std::vector<std::int64_t> range(static_cast<size_t>(last - first + 1));
  std::iota(range.begin(), range.end(), first);
  return range;
}

class RecordThreadTest : public fake::DeviceTest {
 protected:
  RecordThreadTest() {
    TaskManagerInit();
    Mount(0, 1000);
    fake::StreamPlan& main = m_streams.Plan(STREAM_MAIN);
    main.startMs = static_cast<double>(m_clock.WallMs()) - 60000;  // a minute of past: frame 1500 is due now
    fake::StreamPlan& audio = m_streams.Plan(STREAM_AUDIO);
    audio.video = false;
    audio.framesPerSecond = 25;
    audio.startMs = main.startMs;
    m_param = fake::DefaultParam();
  }

  void WithAudio() {
    m_param.audio_enable = 1;
    m_param.audio_type = AUDIO_CODEC_G711_ULAW;
    m_param.audio_param_a = 25;
  }

  std::unique_ptr<CKmvTask> Task() { return std::make_unique<CKmvTask>(m_param, fake::DefaultConfig()); }

  // Runs one task to its end and reads what it left.
  fake::RecordedFile Record() {
    EXPECT_TRUE(fake::StartTask(Task()));
    EXPECT_TRUE(fake::AwaitTasks(2LL * 3600 * 1000));
    const std::vector<std::string> files = Files();
    return files.empty() ? fake::RecordedFile() : fake::ReadRecordedFile(files.back());
  }

  std::vector<std::string> Files(const std::string& day = "20240131") {
    return fake::FilesIn(Path("/mnt/mmc0/schedule/" + day), ".kmv");
  }

  // Nine seconds of both streams' past: frames 1500 to 1725 are in the rings.
  void FillRings(int audio) {
    m_streams.Plan(STREAM_SUB) = m_streams.Plan(STREAM_MAIN);
    ASSERT_TRUE(m_clock.StartThread([audio] { return PreRecInit(audio, 1 << 20, 1 << 20) == 0; }));
    m_clock.Sleep(9000);
  }
  static void ReleaseRings() {
    const fake::Clock::Pause pause;
    PreRecRelease();
  }

  RECORD_TASK_PARAM m_param;
};

}  // namespace recordtest

#endif
