// A record task up to its thread: construction and the choice of storage.
#include <chrono>
#include <cstring>
#include <thread>

#include "base/device_path.h"
#include "tests/record/probe_task.h"
#include "tests/support/device_test.h"

namespace {

using recordtest::ProbeTask;
using recordtest::UsualConfig;
using recordtest::UsualParam;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

std::atomic<void*> g_started{nullptr};

void* NotingThread(void* task) {
  pthread_detach(pthread_self());
  g_started = task;
  return nullptr;
}

bool Started(const CRecordTask& task) {
  for (int i = 0; i < 5000 && g_started == nullptr; ++i) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  return g_started == &task;
}

class RecordTaskTest : public fake::DeviceTest {
 protected:
  RecordTaskTest() { g_started = nullptr; }
  // The texts logged, without their "[function:line]" and without those of other rooms.
  std::vector<std::string> Texts(const std::string& function) {
    std::vector<std::string> texts;
    for (const fake::LogLine& line : m_platform.Log()) {
      if (line.text.compare(0, function.size() + 2, "[" + function + ":") == 0)
        texts.push_back(line.text.substr(line.text.find(']') + 1));
    }
    return texts;
  }

  RECORD_TASK_PARAM m_param = UsualParam();
  RecordConfig m_config = UsualConfig();
  FtpServer m_ftp = {};
};

TEST_F(RecordTaskTest, TheLogPrefixNamesDeviceAndSerial) {
  struct Case {
    const char* serial;
    std::string deviceName;
    bool configFails;
    std::string prefix;
  };
  const Case cases[] = {
      {"SN0001", "Cam", false, "[SN0001][Cam]"},
      {"SN0001", "Cam^01", false, "[SN0001][Cam]"},
      {"SN0001", "^", false, "[SN0001][]"},
      {"SN0001", "", false, "[SN0001][]"},
      {"SN0001", "Cam", true, "[SN0001]"},
      {"SN0001", std::string(200, 'c'), false, "[SN0001][" + std::string(200, 'c') + "]"},  // not terminated
      {"SN0001-0123456789-0123456789", std::string(200, 'c'), false,
       "[SN0001-0123456789-0123456789][" + std::string(187, 'c') + "]"},
  };
  for (const Case& each : cases) {
    m_platform.Reset();
    m_platform.serial = each.serial;
    m_platform.deviceName = each.deviceName;
    m_platform.mediaConfigFails = each.configFails;
    const ProbeTask task(m_param, m_config);
    EXPECT_EQ(task.m_logPrefix, each.prefix);
    EXPECT_LT(std::strlen(task.m_logPrefix), 220u);
    EXPECT_EQ(m_platform.Logged("]MsgGetMediaConfig failed!!!\n\n"), each.configFails);
  }
}

TEST_F(RecordTaskTest, ConstructionCopiesItsParametersAndAdjustsThem) {
  m_param.stream = 1;
  m_param.audio_type = -1;
  m_param.recordtype = 10;
  m_config.network_enable = 0;
  m_config.application[955] = 77;
  ProbeTask task(m_param, m_config);
  m_param.duration = 1;  // the caller's own again

  RECORD_TASK_PARAM param = {};
  RecordConfig config = {};
  task.GetTaskParam(&param, &config);
  EXPECT_EQ(param.duration, 60);
  EXPECT_EQ(param.audio_enable, 0);
  EXPECT_EQ(config.application[955], 77);
  EXPECT_EQ(task.m_local_store, 1);
  EXPECT_EQ(task.m_remote_store, 0);
  EXPECT_EQ(task.GetRecordType(), 10);
  EXPECT_EQ(task.GetStreamSelector(), 1);
  EXPECT_STREQ(task.GetTaskName(), "sched");
  EXPECT_STREQ(task.GetFilePath(), "");
  EXPECT_EQ(task.m_lockFile, -1);
  EXPECT_EQ(std::string(task.m_minuteTypes, 1440), std::string(1440, 'C'));
  EXPECT_TRUE(m_platform.Logged(
      "]recordtype = 10, \nstream = 1, \nvideo_enable = 1, \naudio_enable = 1, \nwidth  =640, \nheight =360, "
      "\nbitrate=4000000, \nframerate  = 25, \npre_second = 0, \nduration   = 60, \nmax_file_seconds = "
      "30,\nlocal_store = 1,\nremote_store= 1,\n\n"));
  EXPECT_TRUE(m_platform.Logged("]video type=1, audio type=-1, samplerate=0, bits=0, channels=0\n\n"));

  m_config.local_enable = 0;
  EXPECT_EQ(ProbeTask(m_param, m_config).m_local_store, 0);
  param.duration = 4;
  task.GetTaskParam(&param, nullptr);
  task.GetTaskParam(nullptr, &config);
  EXPECT_EQ(param.duration, 4);
  EXPECT_EQ(m_platform.CountLogged("]param is NULL!\n\n"), 2);
}

TEST_F(RecordTaskTest, CodecConfigurationIsCutAt256Bytes) {
  ProbeTask task(m_param, m_config);
  std::string data(300, 'v');
  task.SetVolData(data.data(), 300);
  EXPECT_EQ(task.GetRecordInfo().volLength, 256);
  EXPECT_EQ(std::memcmp(task.GetRecordInfo().volData, data.data(), 256), 0);
  task.SetVolData(data.data(), 3);
  EXPECT_EQ(task.GetRecordInfo().volLength, 3);
  task.SetVolData(nullptr, -5);
  EXPECT_EQ(task.GetRecordInfo().volLength, 0);
}

TEST_F(RecordTaskTest, ATaskWithoutLengthDoesNotStart) {
  for (const int preSecond : {0, -1}) {
    m_param.duration = 0;
    m_param.pre_second = preSecond;
    ProbeTask task(m_param, m_config);
    EXPECT_EQ(task.Start(), -1);
    EXPECT_EQ(task.IsRunning(), 0);
  }
  EXPECT_EQ(m_platform.CountLogged("]duration <= 0\n"), 2);
  EXPECT_THAT(m_platform.Calls(), IsEmpty());
}

struct StorageCase {
  const char* what;
  bool local;
  bool remote;
  bool card;
  bool share;
  const char* storageBase;
  const char* networkBase;
  std::vector<std::string> calls;
  std::vector<std::string> texts;  // of the choice, local first
};

const char kLocalDay[] = "/mnt/mmc0/schedule/20240131";
const char kNetworkDay[] = "/tmp/network/SN0001/schedule/20240131";
const std::vector<std::string> kLocalCalls = {"SafeMakeDir(/mnt/mmc0/schedule)",
                                              "SafeMakeDir(/mnt/mmc0/schedule/20240131)"};
const std::vector<std::string> kNetworkCalls = {"SafeMakeDir(/tmp/network/SN0001)",
                                                "SafeMakeDir(/tmp/network/SN0001/schedule)",
                                                "SafeMakeDir(/tmp/network/SN0001/schedule/20240131)"};
const char kNoLocal[] = "can not find storage path for recordtype: 1\n\n";
const char kNoNetwork[] = "can not find network storage path for recordtype: 1\n\n";

std::vector<std::string> Both(std::vector<std::string> first, const std::vector<std::string>& second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

TEST_F(RecordTaskTest, LocalMediaComeFirstAndTheShareBesideOrInsteadOfThem) {
  const std::string local = "storage path: " + Path(kLocalDay) + "\n\n";
  const std::string network = "network path: " + Path(kNetworkDay) + "\n\n";
  const StorageCase cases[] = {
      {"both", true, true, true, true, kLocalDay, kNetworkDay, Both(kLocalCalls, kNetworkCalls), {local, network}},
      {"share away", true, true, true, false, kLocalDay, "", kLocalCalls, {local, kNoNetwork}},
      {"share not wanted", true, false, true, true, kLocalDay, "", kLocalCalls, {local, kNoNetwork}},
      {"no card", true, true, false, true, "", kNetworkDay, kNetworkCalls, {kNoLocal, network}},
      {"card not wanted", false, true, true, true, "", kNetworkDay, kNetworkCalls, {kNoLocal, network}},
  };
  for (const StorageCase& each : cases) {
    SCOPED_TRACE(each.what);
    g_started = nullptr;
    m_platform.Reset();
    if (each.card) Mount(record::kFirstCard, 501);
    if (each.share) Mount(record::kNetworkShare, 0);
    m_param.local_store = each.local ? 1 : 0;
    m_param.remote_store = each.remote ? 1 : 0;
    ProbeTask task(m_param, m_config);
    task.SetStorageBase("stale");
    task.SetNetworkBase("stale");
    ASSERT_EQ(task.StartThread(NotingThread), 0);
    EXPECT_TRUE(Started(task));
    EXPECT_EQ(task.IsRunning(), 1);
    EXPECT_EQ(WithoutRoot(task.GetStorageBase()), each.storageBase);
    EXPECT_EQ(WithoutRoot(task.GetNetworkBase()), each.networkBase);
    EXPECT_EQ(m_platform.Calls(), each.calls);
    EXPECT_EQ(Both(Texts("ChooseLocalStorage"), Texts("ChooseNetworkStorage")), each.texts);
    EXPECT_TRUE(m_platform.Logged("]m_local_store=" + std::to_string(m_param.local_store) +
                                  ", task bitrate=4000000, duration=30, need space 500 M\n\n"));
    const fake::LogLine last = m_platform.Log().back();
    EXPECT_EQ(last.module, 1);
    EXPECT_THAT(last.text, ::testing::HasSubstr("]Create RecordTask ok, m_thread = "));
    EXPECT_EQ(task.Stop(), 0);
    EXPECT_EQ(task.IsRunning(), 0);
  }
}

TEST_F(RecordTaskTest, WithoutStorageTheAlarmIsRaisedAndNothingStarts) {
  Mount(record::kFirstCard, 500);  // exactly what is needed is not enough
  m_param.remote_store = 0;
  ProbeTask task(m_param, m_config);
  task.SetFtpParam(&m_ftp);  // no flag file: RAM is not considered
  EXPECT_EQ(task.StartThread(NotingThread), -1);
  EXPECT_EQ(task.IsRunning(), 0);
  EXPECT_THAT(m_platform.Calls(), ElementsAre("AuxMsgReportAlarm(2024-01-31 08:15:00, 20, 1, 1, [SN0001][Cam])",
                                              "MsgNotifyAlarm(20, 1, 1, [SN0001][Cam])"));
  EXPECT_TRUE(m_platform.Logged("]both local and remote path not found, start record task failed.\n\n"));
}

class RamStorageTest : public RecordTaskTest {
 protected:
  RamStorageTest() { m_param.recordtype = RECORD_KIND_MOTION; }
  void AddRamRecord(int ageSeconds) {
    const std::string path = Path("/tmp/record/081400-av-1.kmv");
    fake::WriteFile(path, "x");
    fake::SetChanged(path, m_clock.WallMs() / 1000 - ageSeconds);
  }
  // Starts the task; tells whether it records into RAM.
  bool StartsInRam(FtpServer* ftp) {
    g_started = nullptr;
    m_platform.ClearRecord();
    ProbeTask task(m_param, m_config);
    task.SetFtpParam(ftp);
    task.SetNetworkBase("stale");
    const int result = task.StartThread(NotingThread);
    if (result != 0) {
      EXPECT_EQ(m_platform.CallsTo("MsgNotifyAlarm").size(), 1u);
      return false;
    }
    EXPECT_TRUE(Started(task));
    EXPECT_EQ(WithoutRoot(task.GetStorageBase()), "/tmp/record");
    EXPECT_STREQ(task.GetNetworkBase(), "");
    EXPECT_THAT(m_platform.CallsTo("MsgNotifyAlarm"), IsEmpty());
    return true;
  }
};

TEST_F(RamStorageTest, NeedsAFlagAnUploadTargetAndAnEvent) {
  EXPECT_FALSE(StartsInRam(&m_ftp));
  for (const char* flag : {record::flag::kPreRecord, record::flag::kRecordInRam}) {
    SetFlag(flag);
    EXPECT_TRUE(StartsInRam(&m_ftp)) << flag;
    EXPECT_THAT(m_platform.Calls(), ElementsAre("SafeMakeDir(/tmp/record)"));
    EXPECT_FALSE(StartsInRam(nullptr)) << flag;
    m_param.recordtype = RECORD_KIND_SCHEDULE;
    EXPECT_FALSE(StartsInRam(&m_ftp)) << flag;
    m_param.recordtype = RECORD_KIND_ALARM + RECORD_KIND_SECOND_SET;
    EXPECT_TRUE(StartsInRam(&m_ftp)) << flag;
    m_param.recordtype = RECORD_KIND_MOTION;
    ASSERT_EQ(unlink(Path(flag).c_str()), 0);
  }
}

TEST_F(RamStorageTest, HoldsOneRecordAtATimeUnlessThatOneIsStale) {
  SetFlag(record::flag::kPreRecord);
  SetFlag(record::flag::kRecordInRam);
  AddRamRecord(90);
  EXPECT_FALSE(StartsInRam(&m_ftp));
  EXPECT_EQ(m_platform.CountLogged("]dir_path=" + Path("/tmp/record")), 4);  // both flags were tried
  EXPECT_THAT(m_platform.CallsTo("mysystem"), IsEmpty());

  AddRamRecord(91);
  m_platform.runCommands = true;
  EXPECT_TRUE(StartsInRam(&m_ftp));
  EXPECT_THAT(m_platform.Calls(), ElementsAre("mysystem(rm -rf /tmp/record/*)", "SafeMakeDir(/tmp/record)"));
}

TEST_F(RamStorageTest, IsTheLastResort) {
  SetFlag(record::flag::kPreRecord);
  AddRamRecord(91);
  Mount(record::kFirstCard, 501);
  ProbeTask task(m_param, m_config);
  task.SetFtpParam(&m_ftp);
  ASSERT_EQ(task.StartThread(NotingThread), 0);
  EXPECT_TRUE(Started(task));
  EXPECT_EQ(WithoutRoot(task.GetStorageBase()), "/mnt/mmc0/motion/20240131");
  EXPECT_TRUE(fake::Exists(Path("/tmp/record/081400-av-1.kmv")));
}

}  // namespace
