// The KMV writer, driven by hand: bytes, names, order of platform calls, rates.
#include <unistd.h>

#include <cstring>

#include "format/kmv/kmv_format.h"
#include "record/video_file.h"
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

std::uint32_t U32(const std::string& bytes, size_t at) {
  std::uint32_t value;
  std::memcpy(&value, bytes.data() + at, sizeof value);
  return value;
}

TEST_F(KmvWriterTest, AFileHasHeadPacketsIndexAndTail) {
  auto task = Task();
  std::string vol = "VOLDATA";
  task->SetVolData(vol.data(), 7);
  ASSERT_EQ(task->RecordBegin(), 0);
  task->Video(1, "KEYFRAME", 100000);
  m_clock.Sleep(40);
  task->Video(0, "PFRAME", 100040);
  task->Audio("aud", 100041);
  m_clock.Sleep(5100 - 40);  // the next indexed frame comes five seconds later
  std::string late = "LATEVOL!";
  task->SetVolData(late.data(), 8);
  task->Video(1, "KEY2", 105100);
  m_clock.Sleep(900);
  ASSERT_EQ(task->RecordEnd(), 0);

  const fake::RecordedFile file = fake::ReadRecordedFile(m_directory + "/081500-av-1.kmv");
  const std::string& b = file.bytes;
  ASSERT_EQ(b.size(), 404u + 4 * 24 + 8 + 6 + 3 + 4 + 7212 + 416);
  EXPECT_EQ(b.substr(0, 16), std::string("\x01\xab\xfe\xdc\x94\x01\x01\x01H.264\0\0\0", 16));
  EXPECT_EQ(U32(b, 40), 1920u);
  EXPECT_EQ(b.substr(56, 8), std::string("VOLDATA\0", 8));
  EXPECT_EQ(U32(b, 312), 7u);
  EXPECT_EQ(b.substr(316, 8), std::string("G.711A\0\0", 8));
  EXPECT_EQ(U32(b, 348), 8000u);
  EXPECT_EQ(U32(b, 360), 64000u);
  EXPECT_EQ(U32(b, 364), 25u);
  EXPECT_THAT((std::vector<std::uint32_t>{U32(b, 368), U32(b, 372), U32(b, 376), U32(b, 380)}),
              ElementsAre(1, 0, 64, 2));

  ASSERT_EQ(file.packets.size(), 4u);
  // magic, stamp 100040, key stamp 100000, length 6, type and medium 0, sequence 1, payload
  EXPECT_EQ(b.substr(404 + 32, 30),
            std::string("\x02\xab\xfe\xdc\xc8\x86\x01\0\xa0\x86\x01\0\x06\0\0\0\0\0\0\0\x01\0\0\0"
                        "PFRAME",
                        30));
  EXPECT_EQ(file.packets[2].keyTimestamp, 0u);
  EXPECT_TRUE(file.packets[2].audio);
  EXPECT_EQ(file.packets[2].sequence, 0u);
  EXPECT_EQ(file.packets[3].sequence, 2u);

  const size_t index = file.end;
  EXPECT_THAT((std::vector<std::uint32_t>{U32(b, index), U32(b, index + 4), U32(b, index + 8)}),
              ElementsAre(0xdcfeab04, 5, 7212));
  EXPECT_EQ(U32(b, index + 12), 404u);
  EXPECT_EQ(U32(b, index + 12 + 4 * 4), 404u) << "seconds without a key frame repeat the one before";
  EXPECT_EQ(U32(b, index + 12 + 5 * 4), file.packets[3].offset);
  EXPECT_EQ(U32(b, index + 12 + 6 * 4), 0u);
  const size_t tail = index + 7212;
  EXPECT_THAT((std::vector<std::uint32_t>{U32(b, tail), U32(b, tail + 4), U32(b, tail + 8), U32(b, tail + 12),
                                          U32(b, tail + 16), U32(b, tail + 20)}),
              ElementsAre(0xdcfeab03, 6000, index, 3, 1, 2));
  EXPECT_EQ(b.substr(tail + 72, 8), "LATEVOL!") << "what came after the head stands in the tail";
  EXPECT_EQ(U32(b, tail + 64), 20u) << "never more than five below the configured rate";
  EXPECT_EQ(U32(b, tail + 380), 0u) << "the audio rate is not clamped";
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
  EXPECT_EQ(U32(second.bytes, second.end + 4), 0u) << "the index is empty again";
  EXPECT_EQ(U32(second.bytes, second.end + 7212 + 20), 2u) << "key frames are counted over the task";
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
  EXPECT_EQ(U32(file.bytes, file.end + 12), 404u);
  EXPECT_EQ(U32(file.bytes, file.end + 16), 404u + 27);
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

TEST_F(KmvWriterTest, TheReaderFindsWhatWasWritten) {
  auto task = Task();
  task->RecordBegin();
  CKmvFile growing;
  ASSERT_EQ(growing.Open((m_directory + "/081500-av-1.kmv").c_str()), 1);
  unsigned char* data = nullptr;
  long owned = 0, video = 0, key = 0;
  unsigned long stamp = 0;
  for (int i = 0; i < 100; ++i) {
    EXPECT_EQ(growing.GetMediaFrame(&data, owned, video, key, stamp), -1) << "not written yet";
    task->Video(i % 25 == 0, "frame " + std::to_string(i), static_cast<unsigned>(i * 40));
    m_clock.Sleep(40);
    const int length = growing.GetMediaFrame(&data, owned, video, key, stamp);
    ASSERT_GT(length, 0) << "a packet can be read as soon as its write has returned";
    EXPECT_EQ(std::string(reinterpret_cast<char*>(data), static_cast<size_t>(length)),
              "frame " + std::to_string(i));
    EXPECT_EQ(stamp, static_cast<unsigned long>(i * 40));
    delete[] data;
  }
  task->RecordEnd();
  EXPECT_EQ(growing.GetMediaFrame(&data, owned, video, key, stamp), -1) << "the end that was written meanwhile";
  CKmvFile finished;
  ASSERT_EQ(finished.Open((m_directory + "/081500-av-1.kmv").c_str()), 1);
  EXPECT_EQ(finished.GetTimeDuration(), 4);
  EXPECT_EQ(finished.SeekTimeOffset(2), 0);
  ASSERT_GT(finished.GetMediaFrame(&data, owned, video, key, stamp), 0);
  EXPECT_EQ(stamp, 2000u);
  delete[] data;
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
