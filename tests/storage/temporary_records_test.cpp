#include <filesystem>

#include "record/maintenance.h"
#include "tests/support/device_test.h"

namespace {

using ::testing::IsEmpty;

class TemporaryRecordsTest : public fake::DeviceTest {
 protected:
  void Add(const std::string& name, int ageSeconds) {
    const std::string path = m_directory + "/" + name;
    fake::WriteFile(path, "x");
    fake::SetChanged(path, m_clock.WallMs() / 1000 - ageSeconds);
  }
  std::vector<std::string> Commands() { return m_platform.CallsTo("mysystem"); }

  std::string m_directory = Path("/tmp/record");
};

TEST_F(TemporaryRecordsTest, OneExpiredRecordEmptiesTheWholeDirectory) {
  m_platform.runCommands = true;
  Add("old.kmv", 61);
  Add("young.kmv", 1);
  Add("other.txt", 1);
  fake::WriteFile(Path("/tmp/recordings.kmv"), "beside it");
  EXPECT_EQ(DelExpiredTmpRecordFile(m_directory.c_str(), 60), 0);
  EXPECT_EQ(Commands().at(0), "mysystem(rm -rf /tmp/record/*)");
  EXPECT_TRUE(std::filesystem::is_empty(m_directory));
  EXPECT_TRUE(fake::Exists(Path("/tmp/recordings.kmv")));
}

TEST_F(TemporaryRecordsTest, NothingElseEmptiesIt) {
  Add("young.kmv", 60);  // exactly the limit
  Add("future.mp4", -1000);
  Add("old.jpg", 100000);
  Add("old.KMV", 100000);
  std::filesystem::create_directories(m_directory + "/directory.kmv");
  Add("../elsewhere.kmv", 100000);
  std::filesystem::create_symlink(Path("/tmp/elsewhere.kmv"), m_directory + "/link.kmv");
  EXPECT_EQ(DelExpiredTmpRecordFile(m_directory.c_str(), 60), 0);
  EXPECT_THAT(Commands(), IsEmpty());
  EXPECT_EQ(DelExpiredTmpRecordFile(Path("/nowhere").c_str(), 60), 0);
  EXPECT_TRUE(m_platform.Logged("]dir_path=" + Path("/nowhere")));
}

TEST_F(TemporaryRecordsTest, ADirectoryWithASpecialNameIsOneWordForTheShell) {
  m_platform.runCommands = true;
  m_directory = Path("/tmp/it's; touch x");
  Add("old.avi", 61);
  EXPECT_EQ(DelExpiredTmpRecordFile(m_directory.c_str(), 60), 0);
  EXPECT_EQ(Commands().size(), 1u);
  EXPECT_TRUE(std::filesystem::is_empty(m_directory));
}

TEST_F(TemporaryRecordsTest, OnlyRecordFilesCountAsRecords) {
  EXPECT_EQ(HasRecordFileInPath(m_directory.c_str()), 0);  // no directory
  for (const char* name : {"x.tmp", "x.KMV", "x.km", "kmv"}) Add(name, 0);
  std::filesystem::create_directories(m_directory + "/directory.kmv");
  EXPECT_EQ(HasRecordFileInPath(m_directory.c_str()), 0);
  for (const char* name : {"x.mp4", "x.avi", "x.kmv", ".kmv", "x.kmv.info"}) {
    Add(name, 0);
    EXPECT_EQ(HasRecordFileInPath(m_directory.c_str()), 1) << name;
    std::filesystem::remove(m_directory + "/" + name);
  }
  EXPECT_EQ(HasRecordFileInPath(m_directory.c_str()), 0);
}

TEST_F(TemporaryRecordsTest, TheStatusFileHoldsOneWord) {
  const std::string path = Path("/tmp/record_status.flag");
  fake::WriteFile(path, "something longer");
  for (const std::int32_t status : {3, -1, 1}) {
    EXPECT_EQ(update_record_status_file(status), 0);
    EXPECT_EQ(fake::ReadFile(path), std::string(reinterpret_cast<const char*>(&status), 4));
  }
  std::filesystem::remove(path);
  fake::WriteFile(Path("/victim"), "keep");
  std::filesystem::create_symlink(Path("/victim"), path);
  EXPECT_EQ(update_record_status_file(2), 0);
  EXPECT_EQ(fake::ReadFile(Path("/victim")), "keep");
  std::filesystem::remove(path);
  std::filesystem::create_directory(path);
  EXPECT_EQ(update_record_status_file(2), 0);
  EXPECT_EQ(ExtractRecordFile(), -1);
}

}  // namespace
