// What only AVI files can suffer; their inspection and repair.
#include "format/avi/avi_repair.h"
#include "tests/format/avi_reading.h"
#include "tests/record/file_faults.h"

namespace avitest {
namespace {

using record::FileRepair;
using record::InspectAvi;
using record::RepairAvi;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

class AviDamageTest : public AviTest {
 protected:
  AviDamageTest() {
    m_cut.FillSeconds(2);
    m_file = m_cut.Bytes();
    m_finished.FillSeconds(2);
    m_finished.Finish();
  }
  std::vector<std::string> Inspect(const std::string& bytes) {
    fake::WriteFile(m_path, bytes);
    return InspectAvi(m_path.c_str()).inconsistencies;
  }
  FileRepair::Outcome Repair(const std::string& bytes) {
    fake::WriteFile(m_path, bytes);
    return RepairAvi(m_path.c_str(), false).outcome;
  }
  std::string Content() const { return fake::ReadFile(m_path); }

  File m_cut;
  File m_finished;
  std::string m_file;
};

TEST_F(AviDamageTest, AFileWithoutItsIndexIsScanned) {
  std::string bytes = m_finished.Bytes();
  SetU32(bytes, m_finished.IndexOffset(), 0x41414141);
  ASSERT_EQ(Open(bytes), 1);
  EXPECT_TRUE(m_platform.Logged("bad index flag: 41414141\n\n"));
  EXPECT_EQ(m_reader.GetTimeDuration(), 2);
  ASSERT_EQ(m_reader.SeekTimeOffset(1), 0);
  ExpectPackets(m_reader, m_cut.Packets(), 10, m_cut.Packets().size());
}

TEST_F(AviDamageTest, ReadingGoesOnBehindDamage) {
  std::string bytes = m_file;
  SetU32(bytes, m_cut.Packets()[4].offset, 0);
  SetU32(bytes, m_cut.Packets()[9].offset + 4, 0x7fffffff);
  ASSERT_EQ(Repair(bytes), FileRepair::Done);
  ASSERT_EQ(m_reader.Open(m_path.c_str()), 1);
  std::size_t frames = 0;
  for (int result = 1; result != -2;) {
    result = ReadFrame(m_reader).result;
    frames += result > 0;
  }
  EXPECT_GE(frames, 16u);
}

// Names of frames all over, none of them one: the search does not read the file for each, and goes on behind them.
TEST_F(AviDamageTest, FalseFramesCostFewReads) {
  std::string bytes = m_file + "damage";
  for (std::uint32_t n = 0; n < 32768; ++n) {
    bytes += "00dc";
    PutU32(bytes, (n * 7919 % 300000) | 1);
  }
  bytes += std::string(1 << 20, 'x') + m_file.substr(m_cut.Packets()[0].offset);
  fake::WriteFile(m_path, bytes);
  const fake::FileFault reads(fake::FileCall::kRead, "clip.avi", 1 << 30, false, 0);
  EXPECT_EQ(RepairAvi(m_path.c_str(), true).packets, 40);
  EXPECT_LT(reads.Calls(), 3000);
}

TEST_F(AviDamageTest, AWrittenIndexThatTheHeaderDoesNotKnowIsKept) {
  std::string bytes = m_finished.Bytes();
  SetU32(bytes, m_finished.IndexOffset() + 8 + 4, 0);  // a time lapse marks few of its key frames
  const std::string finished = bytes;
  SetU32(bytes, 4, 9888);
  SetU32(bytes, 48, 0);
  SetU32(bytes, 9888, 0);
  ASSERT_EQ(Repair(bytes), FileRepair::Done);
  EXPECT_TRUE(Content() == finished);
}

// As the writer leaves it when no frame came.
TEST_F(AviDamageTest, AFileThatEndedWithoutFramesIsWhole) {
  std::string bytes = m_cut.Bytes().substr(0, m_cut.HeaderSize());
  SetU32(bytes, 4, static_cast<std::uint32_t>(bytes.size() - 8));
  SetU32(bytes, 9888, 4);
  EXPECT_THAT(Inspect(bytes), IsEmpty());
  EXPECT_EQ(Repair(bytes), FileRepair::NothingToDo);
  SetU32(bytes, 9888, 8);
  EXPECT_THAT(Inspect(bytes), Contains(HasSubstr("no whole index")));
  EXPECT_EQ(Repair(bytes), FileRepair::Done);
  // An empty index is none.
  SetU32(bytes, 4, 9888);
  SetU32(bytes, 9888, 0);
  EXPECT_NE(Repair(bytes + std::string("idx1\0\0\0\0", 8)), FileRepair::Failed);
  EXPECT_EQ(Repair(Content()), FileRepair::NothingToDo);
}

TEST_F(AviDamageTest, InspectionNamesWhatIsWrong) {
  EXPECT_THAT(Inspect(m_finished.Bytes()), IsEmpty());
  EXPECT_THAT(Inspect(m_file), ElementsAre("no index: recording did not end properly"));
  EXPECT_THAT(Inspect(m_file.substr(0, m_file.size() - 3)),
              ElementsAre(HasSubstr("no index"), HasSubstr("the last frame is torn: ")));
  EXPECT_THAT(Inspect(m_file + "garbage"), Contains(HasSubstr("7 bytes behind the last whole frame")));
  EXPECT_THAT(Inspect(m_finished.Bytes() + "more"), ElementsAre("4 bytes behind the index"));
  const std::size_t index = m_finished.IndexOffset();
  struct Case {
    std::size_t field;
    std::uint32_t value;
    const char* text;
  };
  for (const Case& one : {Case{4, 9888, "the header gives the file 9896 bytes"},
                          Case{48, 9, "counts 9 video frames, the file holds 10"},
                          Case{9888, 5000, "no whole index at offset 14892"},
                          Case{m_cut.Packets()[3].offset, 0, "damaged from offset"},
                          Case{index + 8 + 8, 5, "at offset 9897, where none stands"},
                          Case{index + 8 + 8, 0xffffff00, "the frame at offset 9896 is not in the index"},
                          Case{index + 8 + 12, 5, "is not what the index says"}}) {
    std::string bytes = m_finished.Bytes();
    SetU32(bytes, one.field, one.value);
    EXPECT_THAT(Inspect(bytes), Contains(HasSubstr(one.text))) << one.field;
  }
  fake::WriteFile(m_path, "RIFF" + std::string(10000, 'x'));
  EXPECT_THAT(RepairAvi(m_path.c_str(), false).error, HasSubstr("is not an AVI file"));
}

}  // namespace
}  // namespace avitest
