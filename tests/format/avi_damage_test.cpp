// AVI files cut anywhere, damaged anywhere, growing; their inspection and repair.
#include <unistd.h>

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

std::size_t WholeChunks(const File& file, std::size_t size) {
  std::size_t whole = 0;
  while (whole < file.Chunks().size() && file.Chunks()[whole].End() <= size) ++whole;
  return whole;
}

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

TEST_F(AviDamageTest, CutBeforeTheEndOfItsFirstFrameItHoldsNothing) {
  for (const std::string& bytes : {m_file, m_finished.Bytes()}) {
    fake::WriteFile(m_path, bytes);
    for (std::size_t size = m_cut.Chunks()[0].End(); size-- > 0;) {
      ASSERT_EQ(truncate(m_path.c_str(), static_cast<off_t>(size)), 0);
      ASSERT_EQ(m_reader.Open(m_path.c_str()), 0) << size;
      ASSERT_EQ(RepairAvi(m_path.c_str(), true).outcome == FileRepair::Failed, size < m_cut.HeaderSize()) << size;
    }
  }
}

// Cut while it was recorded, while its end was written, and a finished file cut by somebody.
TEST_F(AviDamageTest, CutAtEveryByteDeliversAndRepairsTheWholeFrames) {
  const std::string end = m_finished.Bytes().substr(m_file.size());
  for (const bool finished : {false, true}) {
    const std::string bytes = finished ? m_finished.Bytes() : m_file + end;
    for (std::size_t size = m_cut.Chunks()[0].End(); size <= bytes.size(); ++size) {
      const std::size_t whole = WholeChunks(m_cut, size);
      ASSERT_EQ(Open(bytes.substr(0, size)), 1) << size;
      ASSERT_EQ(m_reader.GetVideoFrameCount(), static_cast<int>((whole + 1) / 2)) << size;
      ExpectChunks(m_reader, m_cut, 0, whole);
      m_reader.Close();
      const bool needs = !finished || size < bytes.size();
      ASSERT_EQ(RepairAvi(m_path.c_str(), false).outcome, needs ? FileRepair::Done : FileRepair::NothingToDo);
      const std::string repaired = Content();
      if (whole == m_cut.Chunks().size()) {
        ASSERT_TRUE(repaired == m_finished.Bytes()) << size;
      }
      ASSERT_THAT(InspectAvi(m_path.c_str()).inconsistencies, IsEmpty()) << size;
      ASSERT_EQ(RepairAvi(m_path.c_str(), false).outcome, FileRepair::NothingToDo);
      m_platform.ClearRecord();
      ASSERT_EQ(m_reader.Open(m_path.c_str()), 1);
      ASSERT_FALSE(m_platform.Logged("No index found"));
      ExpectChunks(m_reader, m_cut, 0, whole);
      ASSERT_FALSE(HasFailure()) << size;
    }
  }
}

void Exercise(CAviFile& reader, std::size_t fileSize) {
  const auto duration = static_cast<unsigned long>(reader.GetTimeDuration());
  for (const unsigned long second : {0ul, 1ul, duration - 1, duration}) {
    reader.SeekTimeOffset(second);
    EXPECT_LE(ReadFrame(reader).result, static_cast<int>(fileSize));
    reader.MovePrevKeyFrame();
    EXPECT_LE(ReadFrame(reader).result, static_cast<int>(fileSize));
    reader.MoveNextKeyFrame();
  }
  reader.SeekTimeOffset(0);
  std::size_t frames = 0;
  while (ReadFrame(reader).result != -2) ASSERT_LT(++frames, fileSize);
}

TEST_F(AviDamageTest, EveryFieldDamagedEndsCleanly) {
  std::vector<std::size_t> fields = {4422};
  // Of the header all but the empty rooms.
  constexpr std::pair<std::size_t, std::size_t> kFilled[] = {
      {0, 232}, {4336, 4456}, {8560, 8580}, {8828, 8868}, {9884, 9896}};
  for (const auto& [from, end] : kFilled)
    for (std::size_t at = from; at < end; at += 4) fields.push_back(at);
  for (const Chunk& chunk : m_cut.Chunks()) fields.insert(fields.end(), {chunk.offset, chunk.offset + 4});
  for (std::size_t at = m_finished.IndexOffset(); at + 4 <= m_finished.Bytes().size(); at += 4)
    fields.push_back(at);
  for (const std::size_t field : fields) {
    const std::uint32_t before = GetU32(m_finished.Bytes(), field);
    for (const std::uint32_t value : {0u, 1u, 0x7fffffffu, 0xffffffffu, before + 1, before - 1}) {
      std::string bytes = m_finished.Bytes();
      SetU32(bytes, field, value);
      SCOPED_TRACE("field " + std::to_string(field) + " value " + std::to_string(value));
      if (Open(bytes) == 1) Exercise(m_reader, bytes.size());
      m_reader.Close();
      if (RepairAvi(m_path.c_str(), false).outcome != FileRepair::Failed) {
        EXPECT_EQ(RepairAvi(m_path.c_str(), false).outcome, FileRepair::NothingToDo);
      }
      ASSERT_FALSE(HasFailure());
    }
  }
}

TEST_F(AviDamageTest, AFileWithoutItsIndexIsScanned) {
  std::string bytes = m_finished.Bytes();
  SetU32(bytes, m_finished.IndexOffset(), 0x41414141);
  ASSERT_EQ(Open(bytes), 1);
  EXPECT_TRUE(m_platform.Logged("bad index flag: 41414141\n\n"));
  EXPECT_EQ(m_reader.GetTimeDuration(), 2);
  ASSERT_EQ(m_reader.SeekTimeOffset(1), 0);
  ExpectChunks(m_reader, m_cut, 10, m_cut.Chunks().size());
}

// The writer's steps, down to single bytes; the reader looks in after each.
TEST_F(AviDamageTest, GrowingFileIsFollowedToItsEnd) {
  ASSERT_EQ(Open(m_file.substr(0, m_cut.Chunks()[0].End())), 1);
  std::size_t delivered = 0;
  const std::string unfinished = m_file + m_finished.Bytes().substr(m_file.size());
  for (std::size_t size = m_cut.Chunks()[0].End(); size <= unfinished.size(); size += 13) {
    fake::WriteFile(m_path, unfinished.substr(0, size));
    const std::size_t whole = WholeChunks(m_cut, size);
    ExpectChunks(m_reader, m_cut, delivered, whole);
    ASSERT_FALSE(HasFailure()) << size;
    delivered = whole;
  }
  fake::WriteFile(m_path, m_finished.Bytes());
  EXPECT_EQ(ReadFrame(m_reader).result, -2);
  EXPECT_EQ(delivered, m_cut.Chunks().size());
}

// The kernel shows a file page by page while it takes one write; the header is written last.
TEST_F(AviDamageTest, AFileBeingRecordedIsConsistentAtEverySize) {
  const std::string bytes = m_file + m_finished.Bytes().substr(m_file.size());
  for (std::size_t size = m_cut.HeaderSize(); size <= bytes.size(); ++size) {
    fake::WriteFile(m_path, bytes.substr(0, size));
    ASSERT_THAT(InspectAvi(m_path.c_str(), true).inconsistencies, IsEmpty()) << size;
  }
}

TEST_F(AviDamageTest, FramesBehindDamageAreKept) {
  std::string bytes = m_file;
  SetU32(bytes, m_cut.Chunks()[4].offset, 0);
  SetU32(bytes, m_cut.Chunks()[9].offset + 4, 0x7fffffff);
  fake::WriteFile(m_path, bytes);
  const FileRepair dry = RepairAvi(m_path.c_str(), true);
  EXPECT_EQ(dry.packets, 18);
  EXPECT_EQ(dry.dataEnd, static_cast<long long>(m_cut.DataEnd()));
  EXPECT_TRUE(Content() == bytes) << "a dry run touches nothing";
  ASSERT_EQ(Repair(bytes), FileRepair::Done);
  EXPECT_EQ(Content().substr(9896, bytes.size() - 9896), bytes.substr(9896));
  ASSERT_EQ(m_reader.Open(m_path.c_str()), 1);
  EXPECT_EQ(m_reader.GetVideoFrameCount() + m_reader.GetAudioFrameCount(), 18);
  std::size_t frames = 0;
  for (int result = 1; result != -2;) {
    result = ReadFrame(m_reader).result;
    frames += result > 0;
  }
  EXPECT_GE(frames, 16u) << "reading goes on behind damage";
}

// Names of frames all over, none of them one: the search does not read the file for each, and goes on behind them.
TEST_F(AviDamageTest, FalseFramesCostFewReads) {
  std::string bytes = m_file + "damage";
  for (std::uint32_t n = 0; n < 32768; ++n) {
    bytes += "00dc";
    PutU32(bytes, (n * 7919 % 300000) | 1);
  }
  bytes += std::string(1 << 20, 'x') + m_file.substr(m_cut.Chunks()[0].offset);
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
}

TEST_F(AviDamageTest, AnEmptyIndexBehindNoFramesIsNoIndex) {
  std::string bytes = m_cut.Bytes().substr(0, m_cut.HeaderSize());
  SetU32(bytes, 4, 9888);
  SetU32(bytes, 48, 0);
  SetU32(bytes, 9888, 0);
  bytes += std::string("idx1\0\0\0\0", 8);
  EXPECT_NE(Repair(bytes), FileRepair::Failed);
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
                          Case{m_cut.Chunks()[3].offset, 0, "damaged from offset"},
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
