// The MP4 writer on the fake multiplexer, driven by hand: parameters, names, order of platform calls, messages.
#include <filesystem>
#include <limits>

#include "record/video_file.h"
#include "tests/support/device_test.h"
#include "tests/support/driven_task.h"

namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

using Mp4Task = fake::DrivenTask<CMp4Task>;

constexpr char kDay[] = "/mnt/mmc0/manual/20240131";
constexpr char kShare[] = "/tmp/network/SN0001/manual/20240131";

class Mp4WriterTest : public fake::DeviceTest {
 protected:
  Mp4WriterTest() {
    fake::WriteFile(Path(kDay) + "/rec_type.idx", "");
    fake::WriteFile(Path(kShare) + "/rec_type.idx", "");
    m_param = fake::CameraParam(AUDIO_CODEC_G711_ALAW);
    m_param.recordtype = RECORD_KIND_MANUAL;
    m_param.channels = 2;
    m_param.duration = 100;
  }

  std::unique_ptr<Mp4Task> Task(const char* local = kDay, const char* share = "") {
    auto task = std::make_unique<Mp4Task>(m_param);
    task->SetStorageBase(*local != '\0' ? Path(local).c_str() : "");
    task->SetNetworkBase(*share != '\0' ? Path(share).c_str() : "");
    task->SetFtpParam(&m_ftp);
    task->SetEmailParam(&m_email);
    return task;
  }
  // What the multiplexer is opened with: "video audio extra".
  std::string Opened() {
    m_platform.ClearRecord();
    auto task = Task();
    if (task->RecordBegin() != 0) return "refused";
    task->RecordEnd();
    m_clock.Sleep(1000);
    const std::string call = m_platform.CallsTo("Emp4MuxerOpen").at(0);
    return call.substr(call.find(".mp4, ") + 6);
  }
  // The names of the only file and of its upload.
  std::string Names() {
    m_platform.ClearRecord();
    auto task = Task();
    task->RecordBegin();
    task->RecordEnd();
    const std::string ftp = m_platform.CallsTo("FtpOneFile").at(0);
    const size_t remote = ftp.rfind(", ") + 2;
    std::string name = task->GetFilePath();
    std::filesystem::remove(name);
    return name.substr(name.rfind('/') + 1) + " " + ftp.substr(remote, ftp.size() - remote - 1);
  }

  FtpServer m_ftp = {};
  SmtpServerList m_email = {};
  RECORD_TASK_PARAM m_param;
};

TEST_F(Mp4WriterTest, TheMultiplexerGetsTheTasksParameters) {
  const std::string extra = ", 200 3789533700)";  // 2024-01-31 08:15:00 UTC, from 1904
  EXPECT_EQ(Opened(), "1 1920 1080 25 60, 1 12 320 8000 2" + extra);
  m_param.video_type = VIDEO_CODEC_H265;
  m_param.width = m_param.height = m_param.framerate = m_param.channels = 0;
  m_param.audio_type = AUDIO_CODEC_AAC;
  m_param.duration = 7200;
  EXPECT_THAT(Opened(), ::testing::StartsWith("2 1280 720 25 60, 1 10 1024 8000 1, 3600 "));
  m_param.duration = std::numeric_limits<int>::max();
  m_param.audio_type = AUDIO_CODEC_G711_ULAW;
  EXPECT_THAT(Opened(), HasSubstr(", 1 11 320 8000 1, 3600 "));
  m_param.audio_enable = 0;
  EXPECT_THAT(Opened(), HasSubstr(", 0 0 0 0 0, "));
  m_param.audio_enable = 1;
  m_param.audio_type = AUDIO_CODEC_PCM;
  EXPECT_THAT(Opened(), HasSubstr(", 0 0 0 "));
  EXPECT_TRUE(m_platform.Logged("]######### Error: audio_type 3 not support... \n\n"));
  m_param.video_type = VIDEO_CODEC_MPEG4;
  EXPECT_EQ(Opened(), "refused");
  EXPECT_TRUE(m_platform.Logged("]######### Error: video_type 0 not support... \n\n"));
  EXPECT_TRUE(m_platform.Logged("]Open MP4 failed. return.\n"));
  EXPECT_THAT(m_platform.CallsTo("Emp4MuxerOpen"), IsEmpty());
}

TEST_F(Mp4WriterTest, BeginFramesAndEndAskThePlatformInThisOrder) {
  m_param.recordtype = RECORD_KIND_MOTION;
  auto task = Task(kDay, kShare);
  ASSERT_EQ(task->RecordBegin(), 0);
  EXPECT_TRUE(fake::Exists(Path("/tmp/20240131081500-av-1.mp4"))) << "the lock file";
  task->Video(1, "KEY", 4000000000);
  task->Audio("aud", 4000000001);
  task->Video(0, "P", 3);  // past 2^32
  const std::string local = std::string(kDay) + "/081500-av-1.mp4";
  EXPECT_EQ(fake::ReadMp4(Path(local)).frames.size(), 3u) << "committed one by one";
  task->RecordEnd();
  EXPECT_THAT(
      m_platform.Calls(),
      ElementsAre("AuxMsgReportAlarm(2024-01-31 08:15:00, 18, 1, 1, " + local + ")",
                  HasSubstr("Emp4MuxerOpen(" + local + ", "), "Emp4MuxerWriteVideoNALU(1, KEY, 4000000000)",
                  "Emp4MuxerCommit()", "Emp4MuxerWriteAudio(aud, 4000000001)", "Emp4MuxerCommit()",
                  "Emp4MuxerWriteVideoNALU(0, P, 3)", "Emp4MuxerCommit()", "Emp4MuxerClose()",
                  "FtpOneFile(" + std::string(kDay) +
                      ", 081500-av-1.mp4, //2024-1-31/motion, 20240131081500-av-1-motion.mp4)",
                  "EmailOneFile(0, " + std::string(kDay) + ", 081500-av-1.mp4)",
                  "mysystem(cp " + local + " " + kShare + "/081500-av-1.mp4 &)",
                  "mysystem(rm -f /tmp/20240131081500-av-1.mp4)"));
  EXPECT_EQ(fake::ReadFile(Path(kDay) + "/recordfiles.txt"), std::string("081500-av-1.mp4\0\n", 17));
  const std::string path = Path(local);
  std::vector<std::string> told;
  for (const fake::LogLine& line : m_platform.Log()) told.push_back(line.text.substr(line.text.find(']') + 1));
  EXPECT_THAT(told, ::testing::IsSupersetOf(
                        {std::string(".\n\n"), std::string("OpenFile .\n\n"), "NFS path: " + Path(kShare) + "\n",
                         "Using copy when RecordEnd, file: " + path + " ...\n\n", std::string("081500-av-1.mp4\n"),
                         std::string("write finished. start flush and closing...\n\n"),
                         std::string("Copy local to network\n")}));
  EXPECT_EQ(m_platform.CountLogged("]store file: " + path + " ...\n\n"), 2);

  m_platform.ClearRecord();
  ASSERT_EQ(task->RecordBegin(), 0);  // the same second: nothing is written over
  task->Video(1, "KEY", 5);
  task->SetStopped();
  task->RecordEnd();
  EXPECT_THAT(m_platform.CallsTo("FtpOneFile"), IsEmpty()) << "no uploads of a task that was stopped";
  EXPECT_EQ(fake::ReadMp4(Path(local)).frames.size(), 3u);
  EXPECT_EQ(fake::ReadMp4(Path(kDay) + "/081501-av-1.mp4").frames.size(), 1u);
  const RecordInfoStruct& info = task->GetRecordInfo();
  EXPECT_THAT((std::vector<std::uint32_t>{info.videoBytes, info.audioBytes, info.totalBytes}),
              ElementsAre(3, 0, 10))
      << "the total and the key frames are counted over the task";
  EXPECT_EQ(info.keyFrames, 2);
}

TEST_F(Mp4WriterTest, WithoutALocalDirectoryTheShareGetsTheFile) {
  auto task = Task("", kShare);
  ASSERT_EQ(task->RecordBegin(), 0);
  task->Video(1, "KEY", 5);
  task->RecordEnd();
  EXPECT_EQ(fake::ReadMp4(Path(kShare) + "/081500-av-1.mp4").frames.size(), 1u);
  EXPECT_THAT(m_platform.CallsTo("AuxMsgReportAlarm"), IsEmpty());
  EXPECT_THAT(m_platform.CallsTo("FtpOneFile"),
              ElementsAre(HasSubstr(std::string(kShare) + ", 081500-av-1.mp4, ")));
  EXPECT_THAT(m_platform.CallsTo("EmailOneFile"), ElementsAre(HasSubstr(kShare)));
  EXPECT_TRUE(m_platform.Logged("]store file: 081500-av-1.mp4 ...\n\n"));

  m_clock.Sleep(1000);
  m_mp4.plan.opensToRefuse = 1;
  EXPECT_EQ(task->RecordBegin(), -1);
  EXPECT_TRUE(m_platform.Logged("]Emp4MuxerOpen failed. return.\n"));
  EXPECT_TRUE(m_platform.Logged("]open " + Path(kShare) + "/081501-av-1.mp4 failed, err = "));
  EXPECT_FALSE(fake::Exists(Path(kShare) + "/081501-av-1.mp4")) << "no empty file is left";
}

TEST_F(Mp4WriterTest, NamesTellKindSoundAndTimeLapse) {
  EXPECT_EQ(Names(), "081500-av-1.mp4 20240131081500-av-1.mp4");
  m_param.timelapse = 1;
  EXPECT_EQ(Names(), "081500-av-1.mp4 20240131081500-av-1.mp4");
  m_param.audio_enable = 0;
  m_param.stream = 1;
  m_param.recordtype = RECORD_KIND_ALARM;
  EXPECT_EQ(Names(), "081500-sv-2.mp4 20240131081500-sv-2-alarm.mp4");
  m_param.timelapse = 0;
  EXPECT_EQ(Names(), "081500-vv-2.mp4 20240131081500-vv-2-alarm.mp4");

  SetFlag("/opt/zq/ostrum_ipc_server");
  const std::string manual = "/tmp/manual/alarm";
  fake::WriteFile(Path(manual) + "/manual_record_alarm.mp4", "the last one");
  for (int n = 1; n <= 2; ++n) {
    auto task = Task(manual.c_str(), kShare);
    ASSERT_EQ(task->RecordBegin(), 0);
    task->Video(1, std::to_string(n), 5);
    task->RecordEnd();
    EXPECT_EQ(fake::ReadMp4(Path(manual) + "/manual_record_alarm.mp4").frames.at(0).data, std::to_string(n));
  }
  EXPECT_THAT(m_platform.CallsTo("mysystem"),
              ::testing::Contains("mysystem(cp /tmp/manual/alarm/manual_record_alarm.mp4 " + std::string(kShare) +
                                  "/081500-vv-2.mp4 &)"));
  fake::WriteFile(Path("/tmp/motion/alarm/x"), "");
  auto other = Task("/tmp/motion/alarm");
  other->RecordBegin();
  EXPECT_EQ(other->GetFilePath(), Path("/tmp/motion/alarm/081500-vv-2.mp4"));
}

TEST_F(Mp4WriterTest, WhatTheMultiplexerRefusesIsCountedAllTheSame) {
  auto task = Task();
  ASSERT_EQ(task->RecordBegin(), 0);
  m_platform.ClearRecord();
  m_mp4.plan.writeResult = -1;
  task->Video(1, "KEY", 1);
  EXPECT_THAT(m_platform.CallsTo("Emp4MuxerCommit"), IsEmpty());
  m_mp4.plan = {};
  m_mp4.plan.commitResult = -28;
  testing::internal::CaptureStdout();
  task->Audio("aud", 2);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "###### Emp4MuxerCommit fail:-28\n");
  task->RecordEnd();
  EXPECT_EQ(task->GetRecordInfo().videoFrames + task->GetRecordInfo().audioFrames, 2);
  EXPECT_EQ(task->IsWriteFailed(), 0);
}

TEST_F(Mp4WriterTest, AFileEndsBeforeItOutgrowsTheMedium) {
  auto task = Task("", "");  // no file: only counted
  ASSERT_EQ(task->RecordBegin(), 0);
  std::string frame = "F";
  for (int i = 0; i < 2; ++i) task->RecordOneVideoFrame(1, frame.data(), 2000000000, 0);
  EXPECT_FALSE(task->IsFull());
  task->RecordOneVideoFrame(1, frame.data(), 262000000, 0);
  EXPECT_TRUE(task->IsFull());
  ASSERT_EQ(task->RecordBegin(), 0);
  EXPECT_FALSE(task->IsFull());
}

TEST_F(Mp4WriterTest, DestroyingATaskInTheMiddleClosesItsFile) {
  auto task = Task();
  ASSERT_EQ(task->RecordBegin(), 0);
  task->Video(1, "KEY", 5);
  task.reset();
  CMp4File reader;
  EXPECT_EQ(reader.Open((Path(kDay) + "/081500-av-1.mp4").c_str()), 1);
}

}  // namespace
