// The record thread from start to exit, under a clock that the test owns: what it writes, when it ends a file,
// and in which order it asks the platform.
#include <algorithm>
#include <cstdlib>

#include "record/maintenance.h"
#include "tests/record/record_thread.h"

namespace recordtest {
namespace {

using fake::RecordedFile;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;

TEST_F(RecordThreadTest, RecordsForItsBudgetFromTheKeyFrameInThePast) {
  m_param.pre_second = 3;
  WithAudio();
  const RecordedFile file = Record();
  EXPECT_EQ(file.path, Path("/mnt/mmc0/schedule/20240131/081500-av-1.kmv"));
  // Three seconds back lie within the group that began at frame 1400; the budget leaves at 10 s.
  const auto video = file.Indices(false);
  ASSERT_THAT(video, ::testing::Not(IsEmpty()));
  EXPECT_EQ(video, Range(1400, 1750));
  EXPECT_TRUE(file.packets[0].key);
  const auto audio = file.Indices(true);
  EXPECT_EQ(audio, Range(1400, audio.back()));
  EXPECT_GE(audio.back(), 1749);
  for (const auto& packet : file.packets)
    EXPECT_EQ(packet.payload, fake::Streams::Payload(packet.audio ? 2 : 0, packet.StreamIndex(), 120));

  EXPECT_THAT(m_platform.CallsTo("SetForceIdr"), ElementsAre("SetForceIdr(0)"));
  EXPECT_THAT(m_platform.CallsTo("GetStreamData"), ElementsAre("GetStreamData(2, 0)", "GetStreamData(2, 2)",
                                                               "GetStreamData(3, 0)", "GetStreamData(3, 2)"));
  EXPECT_EQ(m_platform.CountLogged("record duration reached"), 1);
  EXPECT_THAT(
      m_platform.CallsTo("AuxMsgReportAlarm"),
      ElementsAre(HasSubstr("2024-01-31 08:15:00, 18, 1, 1, /mnt/mmc0/schedule/20240131/081500-av-1.kmv")));
  EXPECT_THAT(m_platform.CallsTo("MsgNotifyAlarm"), SizeIs(1));
  EXPECT_EQ(fake::ReadFile(Path("/tmp/record_status.flag")), std::string("\1\0\0\0", 4));
  EXPECT_EQ(m_streams.ReaderCount(), 0);
  EXPECT_THAT(fake::FilesIn(Path("/tmp"), ".kmv"), IsEmpty()) << "the lock file is gone";
}

TEST_F(RecordThreadTest, WritesTheFrameWithoutItsTailUnlessToldToKeepIt) {
  m_param.keep_frame_tail = 0;
  m_param.duration = 1;
  const RecordedFile file = Record();
  ASSERT_THAT(file.packets, ::testing::Not(IsEmpty()));
  EXPECT_EQ(file.packets[0].payload.size(), 104u);
}

TEST_F(RecordThreadTest, DropsAllUpToTheNextKeyFrameAfterALoss) {
  m_streams.Plan(STREAM_MAIN).lost = {1510, 1560, 1561};
  m_param.duration = 4;
  const RecordedFile file = Record();
  auto expected = Range(1500, 1509);
  const auto more = Range(1550, 1559);
  expected.insert(expected.end(), more.begin(), more.end());
  const auto rest = Range(1600, 1600);
  expected.insert(expected.end(), rest.begin(), rest.end());
  EXPECT_EQ(file.Indices(false), expected);
  EXPECT_THAT(m_platform.CountLogged("drop frame, keyframe_index=30, frame_index=1511, lastKeyFrameIdx = 30, "
                                     "lastFrameIdx=1509\n\n"),
              1);
}

TEST_F(RecordThreadTest, AStreamThatStallsDelaysNoEndAndLosesNothing) {
  // Two seconds into the file nothing comes any more; what is due meanwhile comes all at once afterwards.
  const auto stallUntil = [this](double ms) {
    m_streams.Plan(STREAM_MAIN).delayMs = [ms](std::int64_t index) {
      return index < 1550 ? 0 : std::max(0.0, ms - static_cast<double>(index - 1500) * 40);
    };
  };
  stallUntil(7000);
  EXPECT_EQ(Record().Indices(false), Range(1500, 1750)) << "caught up before the budget is over";

  m_clock.Reset(2024, 1, 31, 8, 15, 0);
  stallUntil(60000);
  const RecordedFile cut = Record();
  EXPECT_EQ(cut.Indices(false), Range(1500, 1549));
  EXPECT_NEAR(static_cast<double>(m_clock.WallMs()), m_streams.Plan(STREAM_MAIN).startMs + 70000, 500);
  EXPECT_EQ(cut.bytes.size(), cut.end + 7212 + 416) << "ended properly";
  EXPECT_EQ(m_streams.ReaderCount(), 0);
}

TEST_F(RecordThreadTest, EndsAtTheSwitchMinuteOfTheWallClock) {
  struct Case {
    int kind, duration, maxFile;
    const char* end;
  };
  // Begun at 08:15:00 in the test's day.
  for (const Case& c :
       {Case{1, 1800, 600, "08:20:00"}, Case{2, 300, 300, "08:20:00"}, Case{11, 120, 1800, "08:16:00"},
        Case{2, 90, 1800, "08:16:30"}, Case{3, 120, 1800, "08:17:00"}}) {
    m_clock.Reset(2024, 1, 31, 8, 15, 0);
    m_platform.Reset();
    Mount(0, 1000);
    m_param.recordtype = c.kind;
    m_param.duration = c.duration;
    m_param.max_file_seconds = c.maxFile;
    ASSERT_TRUE(fake::StartTask(Task()));
    ASSERT_TRUE(fake::AwaitTasks(3600 * 1000));
    const time_t now = static_cast<time_t>(m_clock.WallMs() / 1000);
    char text[16];
    std::strftime(text, sizeof text, "%H:%M:%S", localtime(&now));
    EXPECT_STREQ(text, c.end) << "kind " << c.kind << " duration " << c.duration;
  }
}

TEST_F(RecordThreadTest, AFileNeverSpansTwoDays) {
  m_clock.Reset(2024, 1, 31, 23, 59, 50);
  m_streams.Plan(STREAM_MAIN).startMs = static_cast<double>(m_clock.WallMs()) - 60000;
  m_param.recordtype = RECORD_KIND_SCHEDULE;
  m_param.duration = 45;
  Record();
  EXPECT_EQ(m_platform.CountLogged("weekday changed from 3 -> 4."), 1);
  const std::string index = fake::ReadFile(Path("/mnt/mmc0/schedule/20240131/rec_type.idx"));
  ASSERT_EQ(index.size(), 1440u);
  EXPECT_EQ(index[1439], 'A');
  EXPECT_EQ(index[0], 'C') << "the minute after midnight belongs to the next day";
}

TEST_F(RecordThreadTest, ATaskThatWaitedOverMidnightRecordsIntoTheNewDay) {
  m_clock.Reset(2024, 1, 31, 23, 59, 58);
  m_streams.Plan(STREAM_MAIN).startMs = static_cast<double>(m_clock.WallMs()) - 60000;
  m_streams.Plan(STREAM_MAIN).registrationsToRefuse = 50;  // five seconds
  Record();
  EXPECT_THAT(Files("20240131"), IsEmpty());
  EXPECT_THAT(Files("20240201"), ElementsAre(Path("/mnt/mmc0/schedule/20240201/000003-vv-1.kmv")));
}

TEST_F(RecordThreadTest, StampsEveryMinuteThatItRecordsAndKeepsOlderMarks) {
  fake::WriteFile(Path("/mnt/mmc0/schedule/20240131/rec_type.idx"),
                  std::string(496, 'C') + "Z" + std::string(943, 'C'));  // 08:16 is marked already
  m_param.duration = 170;
  m_param.rectype_code = 0x100 + 'B';
  ASSERT_TRUE(fake::StartTask(Task()));
  m_clock.Sleep(10000);
  // Another task marks the minute after that.
  fake::WriteFile(Path("/mnt/mmc0/schedule/20240131/rec_type.idx"),
                  std::string(495, 'C') + "BZY" + std::string(942, 'C'));
  ASSERT_TRUE(fake::AwaitTasks(300000));
  const std::string index = fake::ReadFile(Path("/mnt/mmc0/schedule/20240131/rec_type.idx"));
  EXPECT_EQ(index.substr(494, 6), "CBZYCC");
}

TEST_F(RecordThreadTest, TheWallClockMayBeSetWithoutFalsifyingALength) {
  for (const long long step : {-7200000LL, 7200000LL}) {
    m_clock.Reset(2024, 1, 31, 8, 15, 0);
    int passes = 0;
    m_clock.OnSleep([&] {
      if (++passes == 600) m_clock.StepWall(step);
    });
    const RecordedFile file = Record();
    RecordInfoStruct info;
    const std::string bytes = fake::ReadFile(file.path + ".info");
    ASSERT_EQ(bytes.size(), sizeof info);
    bytes.copy(reinterpret_cast<char*>(&info), sizeof info);
    EXPECT_EQ(info.nTimeSeconds, 10u);
    EXPECT_EQ(info.endSeconds - info.startSeconds, 10u);
    for (const std::string& each : Files()) std::remove(each.c_str());
  }
}

TEST_F(RecordThreadTest, StopEndsTheFileProperlyAndSkipsUploads) {
  FtpServer ftp = {};
  std::snprintf(ftp.baseDirectory, sizeof ftp.baseDirectory, "/ftp");
  for (const bool stop : {false, true}) {
    m_platform.ClearRecord();
    auto task = Task();
    task->SetFtpParam(&ftp);
    task->SetIpAddr("10.0.0.9");
    ASSERT_TRUE(fake::StartTask(std::move(task)));
    m_clock.Sleep(4000);
    if (stop) TaskManagerGetFirst(1, -1)->Stop();
    ASSERT_TRUE(fake::AwaitTasks(20000));
    const RecordedFile file = fake::ReadRecordedFile(Files().back());
    EXPECT_EQ(file.bytes.size(), file.end + 7212 + 416);
    const auto uploads = m_platform.CallsTo("FtpOneFile");
    if (stop) {
      EXPECT_THAT(uploads, IsEmpty());
    } else {
      EXPECT_THAT(
          uploads,
          ElementsAre("FtpOneFile(/mnt/mmc0/schedule/20240131, 081500-vv-1.kmv, /ftp/10.0.0.9/2024-1-31/sched, "
                      "20240131081500-vv-1.avi)"));
    }
  }
}

TEST_F(RecordThreadTest, ARamRecordingIsAShortClipOfTheSubStream) {
  fake::StreamPlan& sub = m_streams.Plan(STREAM_SUB);
  sub.startMs = m_streams.Plan(STREAM_MAIN).startMs;
  sub.config = "SUBCONFIG";
  m_platform.mounted.clear();
  SetFlag("/opt/zq/flag.pre.record");
  FtpServer ftp = {};
  m_param.recordtype = RECORD_KIND_MOTION;
  m_param.duration = 60;
  auto task = Task();
  task->SetFtpParam(&ftp);
  const long long begin = m_clock.WallMs();
  ASSERT_TRUE(fake::StartTask(std::move(task)));
  ASSERT_TRUE(fake::AwaitTasks(120000));
  EXPECT_NEAR(static_cast<double>(m_clock.WallMs() - begin), 10000, 50);
  const RecordedFile file = fake::ReadRecordedFile(Path("/tmp/record/081500-vv-2.kmv"));
  ASSERT_THAT(file.packets, ::testing::Not(IsEmpty()));
  EXPECT_EQ(file.packets[0].payload.substr(0, 3), "v1:");
  EXPECT_THAT(file.bytes.substr(56, 9), "SUBCONFIG");
}

TEST_F(RecordThreadTest, ATimeLapseSamplesKeyFramesUpToItsSize) {
  m_param.timelapse = 1;
  m_param.timelapse_interval = 4;
  m_param.timelapse_fps = 2;
  m_param.timelapse_max_mb = 1;
  m_streams.Plan(STREAM_MAIN).bytesOf = [](std::int64_t) { return 100000; };
  const RecordedFile file = Record();
  ASSERT_THAT(file.packets, SizeIs(11));  // the first total above 1 MiB
  for (size_t i = 0; i < file.packets.size(); ++i) {
    EXPECT_EQ(file.packets[i].StreamIndex(), static_cast<std::int64_t>(1500 + i * 100)) << "every second group";
    EXPECT_EQ(file.packets[i].timestamp, 100 + i * 500);
    EXPECT_EQ(file.packets[i].key, i % 2 == 0);
  }
  EXPECT_EQ(m_platform.CountLogged("Timelapse filesize 1100000 reached setting 1 MB."), 1);
}

TEST_F(RecordThreadTest, ABigFrameGrowsTheMediaBufferOnce) {
  m_streams.Plan(STREAM_MAIN).bytesOf = [](std::int64_t index) { return index % 50 == 0 ? 300000 : 100; };
  m_param.duration = 5;
  const RecordedFile file = Record();
  EXPECT_EQ(file.packets[0].payload.size(), 300000u);
  EXPECT_EQ(m_platform.CountLogged("malloc new media buffer ok, size = 307200"), 1);

  SetFlag("/opt/zq/less_mem.flag");
  m_platform.ClearRecord();
  m_param.pre_second = 2;
  EXPECT_EQ(Record().packets[0].payload.size(), 300000u);
  EXPECT_EQ(m_platform.CountLogged("media"), 0);
}

TEST_F(RecordThreadTest, ReadErrorsAreLoggedAndTheRecordingGoesOn) {
  m_streams.Plan(STREAM_MAIN).readsToFail = {3, 4, 50};
  m_streams.Plan(STREAM_AUDIO).readsToFail = {5};
  WithAudio();
  m_param.duration = 2;
  const RecordedFile file = Record();
  EXPECT_EQ(m_platform.CountLogged("read video frame failed!"), 3);
  EXPECT_EQ(m_platform.CountLogged("read audio frame failed!"), 1);
  EXPECT_EQ(file.Indices(false), Range(1500, 1550));
}

TEST_F(RecordThreadTest, ATaskThatWasAddedTwiceLeavesNothingBehind) {
  auto task = Task();
  ASSERT_EQ(TaskManagerAddTask(task.get()), 0);
  ASSERT_TRUE(fake::StartTask(std::move(task)));
  EXPECT_EQ(TaskManagerGetTaskCount(1, -1), 2);
  ASSERT_TRUE(fake::AwaitTasks(20000));
  EXPECT_EQ(TaskManagerFullDirUsing("mmc0"), 0);
}

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__) || defined(__arm__)
constexpr int kLongRecordingHours = 2;  // checked or emulated code is slow
#else
constexpr int kLongRecordingHours = 24;
#endif

// A day of scheduled recording: the application starts the next task whenever one has ended.
TEST_F(RecordThreadTest, ADayOfRecordingHasEveryFrame) {
  m_clock.Reset(2024, 1, 31, 0, 0, 0);
  m_platform.keepLog = false;
  fake::StreamPlan& plan = m_streams.Plan(STREAM_MAIN);
  plan.framesPerSecond = 5;
  plan.framesPerGroup = 10;
  plan.frameBytes = 40;
  plan.startMs = static_cast<double>(m_clock.WallMs());
  m_param.framerate = 5;
  m_param.duration = 86400;
  m_param.max_file_seconds = 1800;
  const long long begin = m_clock.WallMs();
  while (m_clock.WallMs() < begin + kLongRecordingHours * 3600000LL - 1000) {
    ASSERT_TRUE(fake::StartTask(Task()));
    ASSERT_TRUE(fake::AwaitTasks(4000000));
    m_param.pre_second = 1;
  }
  const std::vector<std::string> files = Files();
  EXPECT_THAT(files, SizeIs(kLongRecordingHours * 2));
  std::int64_t next = 0;
  for (const std::string& path : files) {
    const auto indices = fake::ReadRecordedFile(path).Indices(false);
    ASSERT_THAT(indices, ::testing::Not(IsEmpty())) << path;
    ASSERT_LE(indices.front(), next) << path;
    ASSERT_EQ(indices, Range(indices.front(), indices.back())) << path;
    next = indices.back() + 1;
  }
  EXPECT_GE(next, kLongRecordingHours * 3600 * 5 - 5);
  const std::string index = fake::ReadFile(Path("/mnt/mmc0/schedule/20240131/rec_type.idx"));
  EXPECT_EQ(index.substr(0, kLongRecordingHours * 60), std::string(kLongRecordingHours * 60, 'A'));
}

}  // namespace
}  // namespace recordtest
