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

TEST_F(KmvRepairTest, HealthyFileHasNothingToReportAndIsLeftAlone) {
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
}

TEST_F(KmvRepairTest, CutAtEveryByteIsRepairedToWhatWasWhole) {
  const std::string bytes = m_file.Bytes();
  for (std::size_t size = 404; size <= bytes.size(); ++size) {
    std::size_t whole = 0;
    while (whole < m_file.Packets().size() && m_file.Packets()[whole].End() <= size) ++whole;
    ASSERT_EQ(Repair(bytes.substr(0, size)).outcome, FileRepair::Done) << size;
    const std::string repaired = Content();
    const std::size_t dataEnd = whole == 0 ? 404 : m_file.Packets()[whole - 1].End();
    ASSERT_EQ(repaired.size(), dataEnd + 7212 + 416) << size;
    ASSERT_EQ(repaired.substr(0, dataEnd), bytes.substr(0, dataEnd));
    ASSERT_THAT(InspectKmv(m_path.c_str()).inconsistencies, IsEmpty()) << size;
    ASSERT_EQ(RepairKmv(m_path.c_str(), false).outcome, FileRepair::NothingToDo);
    ASSERT_EQ(Content(), repaired);
    m_platform.ClearRecord();
    m_reader.Close();
    ASSERT_EQ(m_reader.Open(m_path.c_str()), 1);
    ASSERT_FALSE(m_platform.Logged("No tail found"));
    ExpectPackets(m_reader, m_file.Packets(), 0, whole);
    ASSERT_FALSE(HasFatalFailure()) << size;
  }
}

// The kernel shows a file page by page while it takes one write.
TEST_F(KmvRepairTest, AFileBeingRecordedIsConsistentAtEverySize) {
  m_file.Finish(2000);
  const std::string& bytes = m_file.Bytes();
  for (std::size_t size = 404; size < bytes.size(); ++size) {
    fake::WriteFile(m_path, bytes.substr(0, size));
    ASSERT_THAT(InspectKmv(m_path.c_str(), true).inconsistencies, IsEmpty()) << size;
  }
}

TEST_F(KmvRepairTest, TheEndThatTheWriterWouldHaveMade) {
  File cut = m_file;
  m_file.Finish(1760);
  ASSERT_EQ(Repair(cut.Bytes()).outcome, FileRepair::Done);
  std::string expected = m_file.Bytes();
  const std::size_t tail = m_file.DataEnd() + 7212;
  SetU32(expected, tail + 64, 20);  // 8 frames in 1.76 s are 5 a second, at least the configured 25 less 5
  SetU32(expected, tail + 380, 5);
  EXPECT_TRUE(Content() == expected);
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

TEST_F(KmvRepairTest, GarbageBehindAGoodEndIsCutOff) {
  m_file.Finish(2000);
  ASSERT_EQ(Repair(m_file.Bytes() + std::string(100000, '\0')).outcome, FileRepair::Done);
  EXPECT_TRUE(Content() == m_file.Bytes());
}

TEST_F(KmvRepairTest, EveryPrefixOfTheEndIsOverwritten) {
  File cut = m_file;
  ASSERT_EQ(Repair(cut.Bytes()).outcome, FileRepair::Done);
  const std::string repaired = Content();
  for (std::size_t size = m_file.DataEnd(); size < repaired.size(); size += 101) {
    ASSERT_EQ(Repair(repaired.substr(0, size)).outcome, FileRepair::Done);
    ASSERT_TRUE(Content() == repaired) << size;
  }
}

TEST_F(KmvRepairTest, PacketsBehindDamageAreKept) {
  std::string bytes = m_file.Bytes();
  SetU32(bytes, m_file.Packets()[4].offset, 0);
  SetU32(bytes, m_file.Packets()[9].offset + 12, 0x7fffffff);
  const FileRepair repair = Repair(bytes);
  EXPECT_EQ(repair.outcome, FileRepair::Done);
  EXPECT_EQ(repair.packets, 14);
  EXPECT_EQ(repair.dataEnd, static_cast<long long>(m_file.DataEnd()));
  EXPECT_EQ(Content().substr(0, bytes.size()), bytes);
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
