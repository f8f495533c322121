#include "format/kmv/kmv_repair.h"

#include "tests/format/kmv_reading.h"

namespace kmvtest {
namespace {

using record::FileRepair;
using record::InspectKmv;
using record::KmvEndState;
using record::KmvReport;
using record::RepairKmv;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

class KmvRepairTest : public KmvTest {
 protected:
  KmvRepairTest() { m_file.FillTwoSeconds(); }

  KmvReport Inspect(const std::string& bytes) {
    fake::WriteFile(m_path, bytes);
    return InspectKmv(m_path.c_str());
  }
  FileRepair Repair(const std::string& bytes) {
    fake::WriteFile(m_path, bytes);
    return RepairKmv(m_path.c_str(), false);
  }
  std::string Content() { return fake::ReadFile(m_path); }

  File m_file;
};

TEST_F(KmvRepairTest, HealthyFileHasNothingToReportAndGarbageBehindItIsCutOff) {
  m_file.Finish(2000);
  const KmvReport report = Inspect(m_file.Bytes());
  EXPECT_EQ(report.error, "");
  EXPECT_THAT(report.inconsistencies, IsEmpty());
  EXPECT_EQ(report.endState, KmvEndState::Whole);
  EXPECT_EQ(report.totals.videoFrames, 8);
  EXPECT_EQ(report.totals.audioFrames, 8);
  EXPECT_EQ(report.totals.keyFrames, 2);
  EXPECT_EQ(report.totals.duration, 1760u);
  EXPECT_EQ(report.dataEnd, static_cast<long long>(m_file.DataEnd()));
  EXPECT_EQ(Repair(m_file.Bytes()).outcome, FileRepair::NothingToDo);
  EXPECT_EQ(Content(), m_file.Bytes());
  ASSERT_EQ(Repair(m_file.Bytes() + std::string(100000, '\0')).outcome, FileRepair::Done);
  EXPECT_TRUE(Content() == m_file.Bytes());
}

TEST_F(KmvRepairTest, DryRunTellsAndTouchesNothing) {
  const std::string cut = m_file.Bytes().substr(0, m_file.Bytes().size() - 1);
  fake::WriteFile(m_path, cut);
  const FileRepair repair = RepairKmv(m_path.c_str(), true);
  EXPECT_EQ(repair.outcome, FileRepair::Done);
  EXPECT_EQ(repair.packets, 15);
  EXPECT_EQ(repair.dataEnd, static_cast<long long>(m_file.Packets()[15].offset));
  EXPECT_EQ(repair.cutBytes, static_cast<long long>(m_file.Packets()[15].payload.size() + 23));
  EXPECT_EQ(repair.fileSize, repair.dataEnd + 7628);
  EXPECT_EQ(Content(), cut);
}

TEST_F(KmvRepairTest, WhatIsNoKmvFileIsRefused) {
  EXPECT_THAT(Repair("RIFF" + std::string(1000, 'x')).error, HasSubstr("is not a KMV file"));
  EXPECT_THAT(Repair("").error, HasSubstr("is not a KMV file"));
  EXPECT_THAT(RepairKmv(Path("/missing.kmv").c_str(), false).error, HasSubstr("No such file"));
}

TEST_F(KmvRepairTest, InspectionNamesWhatIsWrong) {
  const auto& packets = m_file.Packets();
  EXPECT_THAT(Inspect(m_file.Bytes()).inconsistencies, ElementsAre("no tail: recording did not end properly"));
  EXPECT_THAT(Inspect(m_file.Bytes().substr(0, m_file.Bytes().size() - 3)).inconsistencies,
              ElementsAre(HasSubstr("no tail"), HasSubstr("the last packet is torn: 30 bytes of it")));
  m_file.Finish(2000);
  const std::size_t index = m_file.DataEnd();
  const std::size_t tail = index + 7212;
  struct Case {
    std::size_t field;
    std::uint32_t value;
    const char* text;
  };
  const Case cases[] = {
      {4, 0x01010195, "the head gives its size as 405"},
      {8, 0x33333333, "unknown video codec"},
      {316, 0x33333333, "unknown audio codec"},
      {368, 2, "format version 2"},
      {packets[2].offset, 0, "damaged from offset"},
      {packets[2].offset + 4, 1, "runs back"},
      {packets[2].offset + 16, 0x00020000, "unknown medium 2"},
      {packets[2].offset + 20, 7, "video frame 7 follows where 1 is due"},
      {index + 4, 1800, "second 1800 as its last"},
      {index + 12, static_cast<std::uint32_t>(packets[1].offset), "where no such frame stands"},
      {tail + 4, 900, "the tail gives 900 ms, but the index goes on to second 1"},
      {tail + 8, 404, "no index at offset 404"},
      {tail + 12, 9, "9 video frames, the file holds 8"},
      {tail + 16, 7, "7 audio frames, the file holds 8"},
      {tail + 20, 1, "1 key frames, the file holds 2"},
      {tail + 24, 0x33333333, "different codecs"},
  };
  for (const Case& one : cases) {
    std::string bytes = m_file.Bytes();
    SetU32(bytes, one.field, one.value);
    EXPECT_THAT(Inspect(bytes).inconsistencies, ::testing::Contains(HasSubstr(one.text))) << one.field;
  }
}

TEST_F(KmvRepairTest, AFileDamagedThroughoutIsReportedInAHundredLines) {
  std::string bytes = m_file.Bytes();
  for (int n = 0; n < 1000; ++n) bytes += m_file.Bytes().substr(404, 100);
  EXPECT_THAT(Inspect(bytes).inconsistencies.size(), 101u);
}

}  // namespace
}  // namespace kmvtest
