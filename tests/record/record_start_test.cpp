// How a recording begins: with the frames that were kept from before it, or, without readers or a configuration,
// not at all.
#include "tests/record/record_thread.h"

namespace recordtest {
namespace {

using fake::DefaultConfig;
using fake::RecordedFile;
using ::testing::IsEmpty;

class RecordStartTest : public RecordThreadTest {};

TEST_F(RecordStartTest, StartFailuresEndTheTaskWithoutAFile) {
  // No reader for the video: a hundred attempts, a tenth of a second apart.
  m_streams.Plan(STREAM_MAIN).registrationsToRefuse = 1000;
  long long begin = m_clock.RunUs();
  ASSERT_TRUE(fake::StartTask(Task()));
  ASSERT_TRUE(fake::AwaitTasks(60000));
  EXPECT_NEAR(static_cast<double>(m_clock.RunUs() - begin) / 1e6, 10, 0.1);
  EXPECT_EQ(m_platform.CountLogged("register video reader failed! = -1"), 100);

  // None for the audio: the video reader goes, too.
  m_streams.Plan(STREAM_MAIN).registrationsToRefuse = 0;
  m_streams.Plan(STREAM_AUDIO).registrationsToRefuse = 1000;
  WithAudio();
  ASSERT_TRUE(fake::StartTask(Task()));
  ASSERT_TRUE(fake::AwaitTasks(60000));
  EXPECT_EQ(m_streams.ReaderCount(), 0);

  // No configuration for five minutes: the encoder is dead.
  m_streams.Plan(STREAM_MAIN).configKnown = false;
  begin = m_clock.RunUs();
  ASSERT_TRUE(fake::StartTask(Task()));
  ASSERT_TRUE(fake::AwaitTasks(600000));
  EXPECT_NEAR(static_cast<double>(m_clock.RunUs() - begin) / 1e6, 300, 1);
  // The reboot is asked for when the task has left the registry.
  EXPECT_TRUE(m_clock.SleepUntil([&] { return m_platform.CallsTo("MsgSystemReboot").size() == 1; }, 1000));
  EXPECT_THAT(Files(), IsEmpty());

  // Stopped while it waits for the configuration, nothing is rebooted.
  m_platform.ClearRecord();
  ASSERT_TRUE(fake::StartTask(Task()));
  TaskManagerGetFirst(1, -1)->Stop();
  ASSERT_TRUE(fake::AwaitTasks(1000));
  EXPECT_THAT(m_platform.CallsTo("MsgSystemReboot"), IsEmpty());
}

TEST_F(RecordStartTest, PreRecordedFramesComeOnceAndInFrontOfTheLiveOnes) {
  WithAudio();
  FillRings(1);
  m_param.pre_second = 5;
  m_param.duration = 6;
  const RecordedFile file = Record();
  EXPECT_EQ(PreRecGetStatus(), 1);
  ReleaseRings();
  const auto video = file.Indices(false);
  EXPECT_EQ(video, Range(1500, video.back())) << "each once, in order";
  EXPECT_GE(video.back(), 1725 + 149);
  const auto audio = file.Indices(true);
  EXPECT_EQ(audio, Range(audio.front(), audio.back()));
  EXPECT_LE(audio.front(), 1502);
  EXPECT_GE(audio.back(), 1725 + 148);
}

TEST_F(RecordStartTest, AnEncoderThatCountsAnewBehindThePreRecordedFramesIsRecordedOn) {
  m_streams.Plan(STREAM_MAIN).renumberedFrom = 1800;
  FillRings(0);
  m_param.pre_second = 5;
  m_param.duration = 6;
  const RecordedFile file = Record();
  ReleaseRings();
  const auto video = file.Indices(false);
  EXPECT_EQ(video, Range(1500, video.back()));
  EXPECT_GE(video.back(), 1725 + 149);
}

// Only the main and the sub stream have a ring.
TEST_F(RecordStartTest, AThirdStreamTakesNothingFromTheRingOfTheSubStream) {
  m_streams.Plan(3).startMs = static_cast<double>(m_clock.WallMs());
  FillRings(0);
  m_param.stream = 3;
  m_param.pre_second = 5;
  m_param.duration = 3;
  const RecordedFile file = Record();
  ReleaseRings();
  ASSERT_THAT(file.packets, ::testing::Not(IsEmpty()));
  for (const auto& packet : file.packets) EXPECT_EQ(packet.payload.substr(0, 3), "v3:");
  EXPECT_EQ(file.Indices(false), Range(100, file.Indices(false).back()));
  EXPECT_GE(file.Indices(false).back(), 225 + 74);
}

class RefusingTask : public CKmvTask {
 public:
  using CKmvTask::CKmvTask;
  int RecordOneVideoFrame(int, char*, int, unsigned int) override { return ++m_frames == 1 ? -1 : 0; }

 private:
  int m_frames = 0;
};

TEST_F(RecordStartTest, AWriterThatRefusesAFrameEndsTheFileAlsoWhileThePastIsWritten) {
  FillRings(0);
  for (const int preSecond : {0, 5}) {
    m_platform.ClearRecord();
    m_param.pre_second = preSecond;
    ASSERT_TRUE(fake::StartTask(std::make_unique<RefusingTask>(m_param, DefaultConfig())));
    ASSERT_TRUE(fake::AwaitTasks(5000));
    EXPECT_EQ(m_platform.CountLogged("]RecordOneVideoFrame failed!\n\n"), 1) << preSecond;
  }
  ReleaseRings();
}

}  // namespace
}  // namespace recordtest
