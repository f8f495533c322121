
#include "record/task.h"
#include "tests/support/device_test.h"

namespace {

class PlainTask : public CTaskbase {
 public:
  using CTaskbase::CTaskbase;
  int Start() override { return 0; }
  int Stop() override { return 0; }
  using CTaskbase::m_ipAddress;
  using CTaskbase::SetLocalFileName;
};

class TaskBaseTest : public fake::DeviceTest {
 protected:
  PlainTask m_task{11};
};

TEST_F(TaskBaseTest, BasesTakeUpTo256CharactersAndKeepTheOldOneElse) {
  const std::string longest(256, 'x');
  const std::string tooLong(257, 'y');
  m_task.SetStorageBase(longest.c_str());
  m_task.SetNetworkBase(longest.c_str());
  EXPECT_EQ(m_task.GetStorageBase(), longest);
  EXPECT_EQ(m_task.GetNetworkBase(), longest);
  EXPECT_EQ(m_task.SharedStorageBase(), longest);
  EXPECT_TRUE(m_platform.Logged("]" + longest + "\n"));  // the network base tells its path first
  EXPECT_EQ(m_platform.Log().size(), 1u);

  m_task.SetStorageBase(tooLong.c_str());
  m_task.SetNetworkBase(tooLong.c_str());
  EXPECT_EQ(m_platform.CountLogged("]path length = 257 is longer than MAX_STORAGE_BASE=256!\n\n"), 2);
  m_task.SetStorageBase(nullptr);
  m_task.SetNetworkBase(nullptr);
  EXPECT_EQ(m_platform.CountLogged("]path is NULL!\n\n"), 2);
  EXPECT_EQ(m_task.GetStorageBase(), longest);
  EXPECT_EQ(m_task.GetNetworkBase(), longest);
  EXPECT_EQ(m_task.SharedStorageBase(), longest);
  m_task.SetStorageBase("");
  EXPECT_STREQ(m_task.GetStorageBase(), "");
  EXPECT_EQ(m_task.SharedStorageBase(), "");
}

TEST_F(TaskBaseTest, SharedCopiesFollowTheirOriginals) {
  EXPECT_EQ(m_task.SharedLocalPath(), "/");
  m_task.SetStorageBase("/mnt/mmc0/schedule/20240131");
  m_task.SetLocalFileName("a-rather-long-name-081500-av-1.kmv");
  EXPECT_EQ(m_task.SharedLocalPath(), "/mnt/mmc0/schedule/20240131/a-rather-long-name-081500-av-1.kmv");
  m_task.SetLocalFileName("b.kmv");
  EXPECT_EQ(m_task.SharedLocalPath(), "/mnt/mmc0/schedule/20240131/b.kmv");
  m_task.SetLocalFileName(std::string(300, 'n').c_str());
  EXPECT_EQ(m_task.SharedLocalPath(), "/mnt/mmc0/schedule/20240131/" + std::string(255, 'n'));
}

TEST_F(TaskBaseTest, AddressesAreCutAt31Characters) {
  m_task.SetIpAddr(std::string(40, '1').c_str());
  EXPECT_EQ(m_task.m_ipAddress, std::string(31, '1'));
  m_task.SetIpAddr("10.0.0.1");
  EXPECT_STREQ(m_task.m_ipAddress, "10.0.0.1");
  m_task.SetIpAddr(nullptr);
  EXPECT_STREQ(m_task.m_ipAddress, "");
}

TEST_F(TaskBaseTest, RunningTimeWraps) {
  const unsigned before = CTaskbase::GetCurrentTime();
  EXPECT_EQ(before, 1000000u);  // the fake's device has been up for 1000 s
  m_clock.Sleep(1234);
  EXPECT_EQ(CTaskbase::GetCurrentTime() - before, 1234u);
  for (int i = 0; i < 50; ++i) m_clock.Sleep(24 * 3600 * 1000);
  constexpr unsigned long long kFiftyDays = 50ULL * 24 * 3600 * 1000;  // the word holds 49.7
  EXPECT_EQ(CTaskbase::GetCurrentTime(), static_cast<unsigned>(before + 1234 + kFiftyDays));
}

}  // namespace
