// The KMV writer, driven by hand: bytes, names, order of platform calls, rates.
#include <unistd.h>

#include "tests/format/kmv_bytes.h"
#include "tests/support/device_test.h"
#include "tests/support/driven_task.h"
#include "tests/support/recorded_file.h"

namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

using KmvTask = fake::DrivenTask<CKmvTask>;

class KmvWriterTest : public fake::DeviceTest {
 protected:
  KmvWriterTest() {
    m_directory = Path("/mnt/mmc0/manual/20240131");
    fake::WriteFile(m_directory + "/rec_type.idx", "");
    m_param = fake::CameraParam(AUDIO_CODEC_G711_ALAW);
    m_param.recordtype = RECORD_KIND_MANUAL;
  }

  std::unique_ptr<KmvTask> Task() {
    auto task = std::make_unique<KmvTask>(m_param);
    task->SetStorageBase(m_directory.c_str());
    return task;
  }

  std::string m_directory;
  RECORD_TASK_PARAM m_param;
};

// Byte by byte what its numbers alone make; the next indexed frame comes five seconds later.
TEST_F(KmvWriterTest, AFileHasHeadPacketsIndexAndTail) {
  m_param.audio_param_a = 50;
  auto task = Task();
  std::string vol = "VOLDATA";
  task->SetVolData(vol.data(), 7);
  ASSERT_EQ(task->RecordBegin(), 0);
  task->Video(1, "KEYFRAME", 100000);
  m_clock.Sleep(40);
  task->Video(0, "PFRAME", 100040);
  task->Audio("aud", 100041);
  m_clock.Sleep(5100 - 40);
  std::string late = "LATEVOL!";
  task->SetVolData(late.data(), 8);
  task->Video(1, "KEY2", 105100);
  m_clock.Sleep(900);
  ASSERT_EQ(task->RecordEnd(), 0);

  kmvtest::Options options;
  options.vol = vol;
  kmvtest::File file(options);
  file.Video(true, 100000, "KEYFRAME");
  file.Video(false, 100040, "PFRAME");
  file.Audio(100041, "aud");
  file.Video(true, 105100, "KEY2");
  file.Finish(6000);
  std::string expected = file.Bytes();
  const size_t tail = file.DataEnd() + 7212;
  expected.replace(tail + 72, 8, late);  // what came after the head stands in the tail
  kmvtest::SetU32(expected, tail + 328, 8);
  kmvtest::SetU32(expected, tail + 64, 20);  // never more than five below the configured rate
  kmvtest::SetU32(expected, tail + 380, 0);  // the audio rate is not clamped
  EXPECT_TRUE(fake::ReadFile(m_directory + "/081500-av-1.kmv") == expected);
  EXPECT_EQ(task->GetRecordInfo().totalBytes, 21u);
}

TEST_F(KmvWriterTest, TheNextFileOfATaskStartsAfreshButForTheKeyFrameCount) {
  auto task = Task();
  for (int i = 0; i < 2; ++i) {
    ASSERT_EQ(task->RecordBegin(), 0);
    task->Video(1, "KEY", 1);
    m_clock.Sleep(2000);
    ASSERT_EQ(task->RecordEnd(), 0);
  }
  const fake::RecordedFile second = fake::ReadRecordedFile(m_directory + "/081502-av-1.kmv");
  ASSERT_EQ(second.packets.size(), 1u);
  EXPECT_EQ(second.packets[0].sequence, 0u);
  EXPECT_EQ(kmvtest::GetU32(second.bytes, second.end + 4), 0u) << "the index is empty again";
  EXPECT_EQ(kmvtest::GetU32(second.bytes, second.end + 7212 + 20), 2u) << "key frames are counted over the task";
}

TEST_F(KmvWriterTest, AProcessWithoutStandardInputRecords) {
  const int input = dup(STDIN_FILENO);
  close(STDIN_FILENO);
  auto task = Task();
  EXPECT_EQ(task->RecordBegin(), 0);
  task->Video(1, "KEY", 1);
  task->RecordEnd();
  task.reset();
  if (input >= 0) dup2(input, STDIN_FILENO);
  if (input >= 0) close(input);
  EXPECT_EQ(fake::ReadRecordedFile(m_directory + "/081500-av-1.kmv").packets.at(0).payload, "KEY");
}

TEST_F(KmvWriterTest, ARecordingIsNeverWrittenOver) {
  auto first = Task();
  auto second = Task();
  ASSERT_EQ(first->RecordBegin(), 0);
  ASSERT_EQ(second->RecordBegin(), 0);
  first->Video(1, "FIRST", 1);
  second->Video(1, "SECOND", 1);
  first->RecordEnd();
  second->RecordEnd();
  EXPECT_EQ(fake::ReadRecordedFile(m_directory + "/081500-av-1.kmv").packets.at(0).payload, "FIRST");
  EXPECT_EQ(fake::ReadRecordedFile(m_directory + "/081501-av-1.kmv").packets.at(0).payload, "SECOND");
}

TEST_F(KmvWriterTest, ANameOfTheNextDayIsNotTaken) {
  m_clock.Reset(2024, 1, 31, 23, 59, 59);
  auto first = Task();
  auto second = Task();
  EXPECT_EQ(first->RecordBegin(), 0);
  EXPECT_EQ(second->RecordBegin(), -1) << "235959 is taken, and 000000 belongs to tomorrow";
  second->RecordEnd();
  first->RecordEnd();
  EXPECT_THAT(fake::FilesIn(m_directory, ".kmv"), ElementsAre(m_directory + "/235959-av-1.kmv"));
}

TEST_F(KmvWriterTest, BeginAndEndAskThePlatformInThisOrder) {
  FtpServer ftp = {};
  SmtpServerList email = {};
  m_param.recordtype = RECORD_KIND_MOTION;
  auto task = Task();
  task->SetNetworkBase(Path("/tmp/network/SN0001/motion/20240131").c_str());
  task->SetFtpParam(&ftp);
  task->SetEmailParam(&email);
  task->RecordBegin();
  EXPECT_TRUE(fake::Exists(Path("/tmp/20240131081500-av-1.kmv"))) << "the lock file";
  task->RecordEnd();
  const std::string day = "/mnt/mmc0/manual/20240131";
  EXPECT_THAT(
      m_platform.Calls(),
      ElementsAre("AuxMsgReportAlarm(2024-01-31 08:15:00, 18, 1, 1, " + day + "/081500-av-1.kmv)",
                  "MsgNotifyAlarm(19, 1, 1, " + day + "/081500-av-1.kmv)",
                  "mysystem(cp " + day + "/081500-av-1.kmv /tmp/network/SN0001/motion/20240131/081500-av-1.kmv &)",
                  "FtpOneFile(" + day + ", 081500-av-1.kmv, //2024-1-31/motion, 20240131081500-av-1-motion.avi)",
                  "EmailOneFile(0, " + day + ", 081500-av-1.kmv)",
                  "mysystem(rm -f /tmp/20240131081500-av-1.kmv)"));
  EXPECT_FALSE(fake::Exists(Path("/tmp/20240131081500-av-1.kmv")));
  EXPECT_EQ(fake::ReadFile(m_directory + "/recordfiles.txt"), std::string("081500-av-1.kmv\0\n", 17));
}

TEST_F(KmvWriterTest, WithoutALocalDirectoryTheShareGetsTheFile) {
  m_param.audio_enable = 0;
  auto task = Task();
  task->SetStorageBase("");
  const std::string share = Path("/tmp/network/SN0001/manual/20240131");
  fake::WriteFile(share + "/x", "");
  task->SetNetworkBase(share.c_str());
  FtpServer ftp = {};
  task->SetFtpParam(&ftp);
  ASSERT_EQ(task->RecordBegin(), 0);
  task->Video(1, "KEY", 5);
  task->RecordEnd();
  EXPECT_EQ(fake::ReadRecordedFile(share + "/081500-vv-1.kmv").packets.size(), 1u);
  EXPECT_THAT(m_platform.CallsTo("AuxMsgReportAlarm"), IsEmpty());
  EXPECT_THAT(m_platform.CallsTo("FtpOneFile"),
              ElementsAre(HasSubstr("/tmp/network/SN0001/manual/20240131, 081500-vv-1.kmv")));
}

TEST_F(KmvWriterTest, AnAudioOnlyFileIndexesItsAudio) {
  m_param.video_enable = 0;
  auto task = Task();
  task->RecordBegin();
  task->Video(1, "NOT", 1);
  task->Audio("one", 1);
  m_clock.Sleep(1000);
  task->Audio("two", 1001);
  task->RecordEnd();
  const fake::RecordedFile file = fake::ReadRecordedFile(m_directory + "/081500-av-1.kmv");
  ASSERT_EQ(file.packets.size(), 2u);
  EXPECT_EQ(file.bytes.substr(8, 32), std::string(32, '\0')) << "no video fields";
  EXPECT_EQ(kmvtest::GetU32(file.bytes, file.end + 12), 404u);
  EXPECT_EQ(kmvtest::GetU32(file.bytes, file.end + 16), 404u + 27);
}

TEST_F(KmvWriterTest, MeasuredRatesAreRoundedAndClamped) {
  struct Case {
    int frames, preRecorded, preSecond, ms, rate;
  };
  for (const Case& c : {Case{300, 0, 0, 10000, 25}, Case{120, 0, 0, 10000, 20}, Case{225, 0, 0, 10000, 23},
                        Case{224, 0, 0, 10000, 22}, Case{350, 200, 5, 10000, 23}, Case{100, 0, 0, 0, 25}}) {
    m_param.pre_second = c.preSecond;
    auto task = Task();
    task->RecordBegin();
    for (int i = 0; i < c.frames; ++i) task->Video(i == 0 ? 1 : 0, "F", static_cast<unsigned>(i * 40));
    task->SetPreRecorded(c.preRecorded);
    if (c.ms > 0) m_clock.Sleep(c.ms);
    task->WriteTail();
    EXPECT_EQ(task->CalVideoFramerate(), c.rate) << c.frames << " frames in " << c.ms << " ms";
    task->RecordEnd();
    m_clock.Sleep(1000);
  }
}

TEST_F(KmvWriterTest, DestroyingATaskInTheMiddleLeavesWhatWasWritten) {
  auto task = Task();
  task->RecordBegin();
  task->Video(1, "KEY", 5);
  task.reset();
  const fake::RecordedFile file = fake::ReadRecordedFile(m_directory + "/081500-av-1.kmv");
  EXPECT_EQ(file.packets.size(), 1u);
  EXPECT_EQ(file.end, file.bytes.size());
  EXPECT_TRUE(m_platform.Logged("CKmvTask::~CKmvTask() \n\n"));
}

}  // namespace
