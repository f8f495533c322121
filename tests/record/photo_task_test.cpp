// The snapshot task under a clock that the test owns: what it stores, when, and what becomes of faults.
#include <cerrno>
#include <cstring>

#include "record/photo_task.h"
#include "record/task_manager.h"
#include "tests/record/file_faults.h"
#include "tests/support/device_test.h"
#include "tests/support/recorded_file.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;
using Texts = std::vector<std::string>;

class WatchedPhotos : public CPhotoTask {
 public:
  WatchedPhotos(const PHOTO_TASK_PARAM& param, const RecordConfig& config, Texts& told)
      : CPhotoTask(param, config), m_told(told) {}

 private:
  void PictureStored(int number, const char* path) override {
    m_told.push_back(std::to_string(number) + " " + path);
  }
  void PictureFailed(int number, const char* reason) override {
    m_told.push_back(std::to_string(number) + " failed: " + reason);
  }

  Texts& m_told;
};

class PhotoTaskTest : public fake::DeviceTest {
 protected:
  PhotoTaskTest() {
    TaskManagerInit();
    Mount(0, 1000);
    std::strncpy(m_ftp.baseDirectory, "/base", sizeof m_ftp.baseDirectory);
  }

  std::unique_ptr<WatchedPhotos> Task() { return std::make_unique<WatchedPhotos>(m_param, m_config, m_told); }
  bool RunSeries() { return fake::StartTask(Task()) && fake::AwaitTasks(3600 * 1000); }
  // What was told, without the device root.
  Texts Told() const {
    Texts told;
    for (const std::string& text : m_told) told.push_back(WithoutRoot(text));
    return told;
  }

  PHOTO_TASK_PARAM m_param = {RECORD_KIND_MOTION, 1, 3, 10, 320, 240, 80, 1, 0};
  RecordConfig m_config = {1, 1, {}};
  FtpServer m_ftp = {};
  SmtpServerList m_email = {};
  Texts m_told;
};

TEST_F(PhotoTaskTest, TakesASeriesOnTimeAndCountsInTheRegistry) {
  std::atomic<int> taken{0};
  int counted = 0;
  m_platform.picture = [&] {
    counted += TaskManagerGetTaskCount(RECORD_KIND_MOTION, 1);
    m_clock.Sleep(1500);  // a picture that takes its time delays none of the others
    return "picture " + std::to_string(++taken);
  };
  ASSERT_TRUE(RunSeries());
  const std::string day = "/mnt/mmc0/motion/20240131/";
  EXPECT_THAT(Told(), ElementsAre("1 " + day + "20240131_081501_1.jpg", "2 " + day + "20240131_081511_2.jpg",
                                  "3 " + day + "20240131_081521_3.jpg"));
  EXPECT_EQ(fake::ReadFile(Path(day + "20240131_081511_2.jpg")), "picture 2");
  EXPECT_EQ(counted, 3);
  EXPECT_THAT(m_platform.CallsTo("TakeJpegPicture"), ::testing::Each("TakeJpegPicture(1, 320, 240, 80)"));
  EXPECT_THAT(m_platform.CallsTo("FtpOneFile"), IsEmpty());
}

TEST_F(PhotoTaskTest, StopsAtOnceAndFollowsTheDay) {
  m_clock.Reset(2024, 1, 31, 23, 59, 55);
  m_param.count = 1000;
  auto task = Task();
  CPhotoTask* const running = task.get();
  ASSERT_TRUE(fake::StartTask(std::move(task)));
  ASSERT_TRUE(m_clock.SleepUntil([&] { return m_clock.RunUs() >= 1012LL * 1000000; }, 20000));
  const long long stopped = m_clock.RunUs();
  EXPECT_EQ(running->Stop(), 0);
  ASSERT_TRUE(fake::AwaitTasks(1000));
  EXPECT_LE(m_clock.RunUs() - stopped, 100 * 1000);
  EXPECT_THAT(Told(), ElementsAre("1 /mnt/mmc0/motion/20240131/20240131_235955_1.jpg",
                                  "2 /mnt/mmc0/motion/20240201/20240201_000005_2.jpg"));
}

TEST_F(PhotoTaskTest, MirrorsAndHandsOver) {
  m_param.count = 1;
  m_param.remote_store = 1;
  Mount(3, 1000);
  const auto run = [&] {
    auto task = Task();
    task->SetFtpParam(&m_ftp);
    task->SetEmailParam(&m_email);
    task->SetIpAddr("10.0.0.5");
    m_platform.ClearRecord();
    return fake::StartTask(std::move(task)) && fake::AwaitTasks(1000);
  };
  ASSERT_TRUE(run());
  const std::string share = "/tmp/network/SN0001/motion/20240131";
  const std::string local = "/mnt/mmc0/motion/20240131";
  const std::string name = "20240131_081500_1.jpg";
  EXPECT_THAT(m_platform.CallsTo("mysystem"),
              ElementsAre("mysystem(cp " + local + "/" + name + " " + share + "/" + name + " &)"));
  EXPECT_THAT(m_platform.CallsTo("FtpOneFile"), ElementsAre("FtpOneFile(" + local + ", " + name +
                                                            ", /base/10.0.0.5/2024-1-31/motion, " + name + ")"));
  EXPECT_THAT(m_platform.CallsTo("EmailOneFile"), ElementsAre("EmailOneFile(0, " + local + ", " + name + ")"));

  // Uploads that the platform would not take, and a name that is taken: the series of the same second goes on.
  m_platform.uploadsTaken = 0;
  m_config.local_enable = 0;
  fake::WriteFile(Path(share + "/" + name), "somebody else's");
  ASSERT_TRUE(run());
  EXPECT_THAT(Told().back(), "1 " + share + "/20240131_081500_2.jpg");
  EXPECT_EQ(fake::ReadFile(Path(share + "/" + name)), "somebody else's");
  EXPECT_TRUE(m_platform.Logged("is not uploaded: the platform takes no file for FTP"));
  EXPECT_TRUE(m_platform.Logged("is not sent: the platform takes no file for e-mail"));
  for (const char* none : {"mysystem", "FtpOneFile", "EmailOneFile"})
    EXPECT_THAT(m_platform.CallsTo(none), IsEmpty());
}

// Every picture of the series meets another fault; those in between are stored.
TEST_F(PhotoTaskTest, FaultsAreReportedAndTheSeriesGoesOn) {
  m_param.count = 9;
  m_param.remote_store = 1;
  std::unique_ptr<fake::FileFault> fault;
  int number = 0;
  m_platform.picture = [&]() -> std::string {
    ++number;
    fault.reset();
    if (number == 2) return "";
    if (number == 4) fault = std::make_unique<fake::FileFault>(fake::FileCall::kSync, ".jpg", 1, false, ENOSPC);
    if (number == 6) m_platform.freeMB[0] = 500;  // full: the next two find no storage
    return "JPEG";
  };
  m_clock.OnSleep([&] {
    if (m_clock.RunUs() >= 1075LL * 1000000) m_platform.freeMB[0] = 1000;
  });
  ASSERT_TRUE(RunSeries());
  const std::string day = "/mnt/mmc0/motion/20240131/20240131_0815";
  const std::string later = "/mnt/mmc0/motion/20240131/20240131_0816";
  EXPECT_THAT(Told(), ElementsAre("1 " + day + "00_1.jpg", "2 failed: no picture", "3 " + day + "20_3.jpg",
                                  "4 failed: " + day + "30_4.jpg: No space left on device",
                                  "5 " + day + "40_5.jpg", "6 " + day + "50_6.jpg", "7 failed: no storage",
                                  "8 failed: no storage", "9 " + later + "20_9.jpg"));
  EXPECT_THAT(m_platform.CallsTo("MsgNotifyAlarm"), ElementsAre("MsgNotifyAlarm(20, 1, 1, [SN0001][Cam])"))
      << "one alarm for one lack of storage";
  EXPECT_EQ(m_platform.CountLogged("picture 2 of 9 failed: no picture"), 1);
  EXPECT_EQ(m_platform.CountLogged("network storage not mounted."), 10) << "the share is away all the time";
  EXPECT_THAT(fake::FilesIn(Path("/mnt/mmc0/motion/20240131"), ""), SizeIs(5)) << "nothing half";
}

TEST_F(PhotoTaskTest, ASeriesThatCannotBeStartedBelongsToTheCaller) {
  const auto starts = [&](int count, int interval, int localStore) {
    m_param.count = count;
    m_param.interval = interval;
    m_param.local_store = localStore;
    return Task()->Start();
  };
  EXPECT_EQ(starts(0, 1, 1), -1);
  EXPECT_EQ(starts(1, -1, 1), -1);
  EXPECT_THAT(m_platform.CallsTo("MsgNotifyAlarm"), IsEmpty());
  EXPECT_EQ(starts(1, 0, 0), -1);
  EXPECT_THAT(m_platform.CallsTo("MsgNotifyAlarm"), SizeIs(1));
  EXPECT_TRUE(m_platform.Logged("both local and remote path not found, start photo task failed."));
  PHOTO_TASK_PARAM param = {};
  RecordConfig config = {};
  Task()->GetTaskParam(&param, &config);
  EXPECT_EQ(param.quality, 80);
}

}  // namespace
