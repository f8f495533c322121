// Record files cut anywhere, damaged anywhere, and still growing, in both containers whose end can be repaired.
#include <algorithm>
#include <set>

#include "format/avi/avi_repair.h"
#include "format/kmv/kmv_repair.h"
#include "tests/format/avi_reading.h"
#include "tests/format/kmv_reading.h"

namespace formattest {
namespace {

using record::FileRepair;
using ::testing::IsEmpty;
using Offsets = std::vector<std::size_t>;

void AddWords(Offsets& to, std::size_t from, std::size_t end) {
  for (std::size_t at = from; at < end; at += 4) to.push_back(at);
}

struct Kmv {
  using Reader = CKmvFile;
  using File = kmvtest::File;
  static constexpr int kRefused = -1;
  static constexpr std::size_t kHeadSize = 404;
  static constexpr std::size_t kKeptFrom = 0;      // up to the end of the data repair touches nothing
  static constexpr std::size_t kLengthField = 12;  // of a packet
  static constexpr std::size_t kEndStep = 97;      // its end is long, and much of it empty
  static constexpr char kScanned[] = "No tail found";

  static File Recorded() {
    File file;
    file.FillTwoSeconds();
    return file;
  }
  // As the writer would end it: 8 frames in 1.76 s are 5 a second, at least the configured 25 less 5.
  static std::string Finished() {
    File file = Recorded();
    file.Finish(1760);
    std::string bytes = file.Bytes();
    kmvtest::SetU32(bytes, file.DataEnd() + 7212 + 64, 20);
    kmvtest::SetU32(bytes, file.DataEnd() + 7212 + 380, 5);
    return bytes;
  }
  static std::size_t FinishedSize(std::size_t dataEnd, std::size_t) { return dataEnd + 7212 + 416; }
  static std::size_t FirstReadable(const File&) { return kHeadSize; }
  static bool Counts(CKmvFile& reader, std::size_t packets) {  // every second one is sound
    return reader.GetAudioFrameCount() == static_cast<int>(packets / 2);
  }
  static Offsets Fields(const File& file) {
    Offsets fields;
    AddWords(fields, 0, kHeadSize);
    for (const kmvtest::Packet& packet : file.Packets()) AddWords(fields, packet.offset, packet.offset + 24);
    AddWords(fields, file.DataEnd(), file.DataEnd() + 24);
    AddWords(fields, file.DataEnd() + 7212, file.DataEnd() + 7212 + 416);
    return fields;
  }
  static record::FileReport Inspect(const std::string& path, bool growing) {
    return record::InspectKmv(path.c_str(), growing);
  }
  static FileRepair Repair(const std::string& path, bool dryRun) {
    return record::RepairKmv(path.c_str(), dryRun);
  }
};

struct Avi {
  using Reader = CAviFile;
  using File = avitest::File;
  static constexpr int kRefused = 0;
  static constexpr std::size_t kHeadSize = 9896;
  static constexpr std::size_t kKeptFrom = 9896;
  static constexpr std::size_t kLengthField = 4;
  static constexpr std::size_t kEndStep = 1;
  static constexpr char kScanned[] = "No index found";

  static File Recorded() {
    File file;
    file.FillSeconds(2);
    return file;
  }
  static std::string Finished() {
    File file = Recorded();
    file.Finish();
    return file.Bytes();
  }
  static std::size_t FinishedSize(std::size_t dataEnd, std::size_t packets) {
    return kHeadSize + (dataEnd - kHeadSize + 3) / 4 * 4 + 8 + 16 * packets;
  }
  static std::size_t FirstReadable(const File& file) { return file.Packets()[0].End(); }
  static bool Counts(CAviFile& reader, std::size_t packets) {
    return reader.GetVideoFrameCount() == static_cast<int>((packets + 1) / 2) &&
           reader.GetAudioFrameCount() == static_cast<int>(packets / 2);
  }
  static Offsets Fields(const File& file) {
    Offsets fields = {4422};
    // Of the header all but the empty rooms.
    constexpr std::pair<std::size_t, std::size_t> kFilled[] = {
        {0, 232}, {4336, 4456}, {8560, 8580}, {8828, 8868}, {9884, 9896}};
    for (const auto& [from, end] : kFilled) AddWords(fields, from, end);
    for (const avitest::Packet& packet : file.Packets()) AddWords(fields, packet.offset, packet.offset + 8);
    AddWords(fields, file.IndexOffset(), file.IndexOffset() + 8 + 16 * file.Packets().size());
    return fields;
  }
  static record::FileReport Inspect(const std::string& path, bool growing) {
    return record::InspectAvi(path.c_str(), growing);
  }
  static FileRepair Repair(const std::string& path, bool dryRun) {
    return record::RepairAvi(path.c_str(), dryRun);
  }
};

template <typename Container>
class DamageTest : public ReaderTest<typename Container::Reader> {
 protected:
  using ReaderTest<typename Container::Reader>::m_path;

  std::size_t WholePackets(std::size_t size) const {
    std::size_t whole = 0;
    while (whole < m_file.Packets().size() && m_file.Packets()[whole].End() <= size) ++whole;
    return whole;
  }
  // Every size of the data one by one, then in steps.
  std::size_t NextSize(std::size_t size) const {
    return size + (size < m_file.DataEnd() + 30 ? 1 : Container::kEndStep);
  }
  FileRepair::Outcome Repair() const { return Container::Repair(m_path, false).outcome; }
  void Expect(std::size_t first, std::size_t end) { ExpectPackets(this->m_reader, m_file.Packets(), first, end); }

  const typename Container::File m_file = Container::Recorded();
  const std::string m_data = m_file.Bytes();
  const std::string m_finished = Container::Finished();
  const std::string m_ending = m_data + m_finished.substr(m_data.size());  // before its header is set right
};

struct ContainerNames {
  template <typename Container>
  static std::string GetName(int) {
    return std::is_same_v<Container, Kmv> ? "Kmv" : "Avi";
  }
};
using Containers = ::testing::Types<Kmv, Avi>;
TYPED_TEST_SUITE(DamageTest, Containers, ContainerNames);

TYPED_TEST(DamageTest, CutBeforeTheEndOfItsFirstFrameItHoldsNothing) {
  for (const std::string& bytes : std::set<std::string>{this->m_ending, this->m_finished}) {
    for (std::size_t size = TypeParam::FirstReadable(this->m_file); size-- > 0;) {
      ASSERT_EQ(this->Open(bytes.substr(0, size)), TypeParam::kRefused) << size;
      const FileRepair repair = TypeParam::Repair(this->m_path, true);
      ASSERT_EQ(repair.outcome == FileRepair::Failed, size < TypeParam::kHeadSize) << size;
    }
  }
}

// Cut while it was recorded, while its end was written, and a finished file cut by somebody.
TYPED_TEST(DamageTest, CutAtEveryByteDeliversAndRepairsTheWholeFrames) {
  for (const std::string& bytes : std::set<std::string>{this->m_ending, this->m_finished}) {
    for (std::size_t size = TypeParam::FirstReadable(this->m_file); size <= bytes.size();
         size = this->NextSize(size)) {
      const std::size_t whole = this->WholePackets(size);
      ASSERT_EQ(this->Open(bytes.substr(0, size)), 1) << size;
      ASSERT_TRUE(TypeParam::Counts(this->m_reader, whole)) << size;
      this->Expect(0, whole);
      this->m_reader.Close();
      const bool isWhole = bytes.substr(0, size) == this->m_finished;
      ASSERT_EQ(this->Repair(), isWhole ? FileRepair::NothingToDo : FileRepair::Done) << size;
      const std::string repaired = fake::ReadFile(this->m_path);
      const std::size_t dataEnd = whole == 0 ? TypeParam::kHeadSize : this->m_file.Packets()[whole - 1].End();
      ASSERT_EQ(repaired.size(), TypeParam::FinishedSize(dataEnd, whole)) << size;
      constexpr std::size_t kFrom = TypeParam::kKeptFrom;
      ASSERT_EQ(repaired.substr(kFrom, dataEnd - kFrom), bytes.substr(kFrom, dataEnd - kFrom));
      if (whole == this->m_file.Packets().size()) {
        ASSERT_TRUE(repaired == this->m_finished) << size;
      }
      ASSERT_THAT(TypeParam::Inspect(this->m_path, false).inconsistencies, IsEmpty()) << size;
      ASSERT_EQ(this->Repair(), FileRepair::NothingToDo);
      ASSERT_TRUE(fake::ReadFile(this->m_path) == repaired);
      ASSERT_EQ(this->Open(repaired), 1);
      ASSERT_FALSE(this->m_platform.Logged(TypeParam::kScanned));
      this->Expect(0, whole);
      ASSERT_FALSE(this->HasFailure()) << size;
    }
  }
}

// Every operation once, frames to the end; the file is damaged, so nothing is known but that all of it ends.
template <typename Reader>
void Exercise(Reader& reader, std::size_t fileSize, int behindTheLast) {
  unsigned long flags = 0;
  VIDEO_PARAM video;
  AUDIO_PARAM audio;
  reader.GetMeidaParam(&flags, &video, &audio);
  reader.GetVideoFrameCount();
  reader.GetVideoFrameInterval();
  reader.GetKeyFrameTimeInterval();
  const auto duration = static_cast<unsigned long>(reader.GetTimeDuration());
  for (const unsigned long second : {0ul, 1ul, 1799ul, 1800ul, duration - 1, duration}) {
    reader.SeekTimeOffset(second);
    EXPECT_LE(ReadFrame(reader).result, static_cast<int>(fileSize));
    reader.MovePrevKeyFrame();
    EXPECT_LE(ReadFrame(reader).result, static_cast<int>(fileSize));
    reader.MoveNextKeyFrame();
  }
  std::size_t frames = 0;
  reader.SeekTimeOffset(0);
  while (ReadFrame(reader).result != behindTheLast) ASSERT_LT(++frames, fileSize);
}

TYPED_TEST(DamageTest, EveryFieldDamagedEndsCleanly) {
  for (const std::size_t field : TypeParam::Fields(this->m_file)) {
    const std::uint32_t before = kmvtest::GetU32(this->m_finished, field);
    for (const std::uint32_t value : {0u, 1u, 0x7fffffffu, 0xffffffffu, before + 1, before - 1}) {
      std::string bytes = this->m_finished;
      kmvtest::SetU32(bytes, field, value);
      SCOPED_TRACE("field " + std::to_string(field) + " value " + std::to_string(value));
      if (this->Open(bytes) == 1) Exercise(this->m_reader, bytes.size(), this->m_file.Packets()[0].kBehindTheLast);
      this->m_reader.Close();
      if (this->Repair() != FileRepair::Failed) {
        EXPECT_EQ(this->Repair(), FileRepair::NothingToDo);
      }
      ASSERT_FALSE(this->HasFailure());
    }
  }
}

// The writer's steps, down to single bytes; the reader looks in after each.
TYPED_TEST(DamageTest, GrowingFileIsFollowedToItsEnd) {
  std::size_t size = TypeParam::FirstReadable(this->m_file);
  ASSERT_EQ(this->Open(this->m_ending.substr(0, size)), 1);
  std::size_t delivered = 0;
  for (; size <= this->m_ending.size(); size += std::max<std::size_t>(7, this->NextSize(size) - size)) {
    fake::WriteFile(this->m_path, this->m_ending.substr(0, size));
    const std::size_t whole = this->WholePackets(size);
    this->Expect(delivered, whole);
    ASSERT_FALSE(this->HasFailure()) << size;
    delivered = whole;
  }
  EXPECT_EQ(delivered, this->m_file.Packets().size());
  fake::WriteFile(this->m_path, this->m_finished);
  this->Expect(delivered, delivered);
}

TYPED_TEST(DamageTest, FileFinishedBehindTheReadersBackEndsWhereItsIndexBegins) {
  ASSERT_EQ(this->Open(this->m_data), 1);
  EXPECT_TRUE(ReadFrame(this->m_reader) == this->m_file.Packets()[0]);
  fake::WriteFile(this->m_path, this->m_finished);
  this->Expect(1, this->m_file.Packets().size());
}

// The kernel shows a file page by page while it takes one write; the header is written last.
TYPED_TEST(DamageTest, AFileBeingRecordedIsConsistentAtEverySize) {
  for (std::size_t size = TypeParam::kHeadSize; size <= this->m_ending.size(); ++size) {
    fake::WriteFile(this->m_path, this->m_ending.substr(0, size));
    ASSERT_THAT(TypeParam::Inspect(this->m_path, true).inconsistencies, IsEmpty()) << size;
  }
}

TYPED_TEST(DamageTest, FramesBehindDamageAreKept) {
  const auto& packets = this->m_file.Packets();
  std::string bytes = this->m_data;
  kmvtest::SetU32(bytes, packets[4].offset, 0);
  kmvtest::SetU32(bytes, packets[9].offset + TypeParam::kLengthField, 0x7fffffff);
  fake::WriteFile(this->m_path, bytes);
  const FileRepair dry = TypeParam::Repair(this->m_path, true);
  EXPECT_EQ(dry.packets, static_cast<long long>(packets.size()) - 2);
  EXPECT_EQ(dry.dataEnd, static_cast<long long>(this->m_file.DataEnd()));
  EXPECT_TRUE(fake::ReadFile(this->m_path) == bytes) << "a dry run touches nothing";
  EXPECT_EQ(this->Repair(), FileRepair::Done);
  constexpr std::size_t kFrom = TypeParam::kKeptFrom;
  EXPECT_EQ(fake::ReadFile(this->m_path).substr(kFrom, bytes.size() - kFrom), bytes.substr(kFrom));
  ASSERT_EQ(this->m_reader.Open(this->m_path.c_str()), 1);
  EXPECT_TRUE(TypeParam::Counts(this->m_reader, packets.size() - 2));
}

}  // namespace
}  // namespace formattest
