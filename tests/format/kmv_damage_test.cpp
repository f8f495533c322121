// KMV files cut anywhere, damaged anywhere, and still growing.
#include <algorithm>

#include "tests/format/kmv_reading.h"

namespace kmvtest {
namespace {

std::size_t WholePackets(const File& file, std::size_t size) {
  const auto& packets = file.Packets();
  return static_cast<std::size_t>(std::count_if(packets.begin(), packets.end(),
                                                [size](const Packet& packet) { return packet.End() <= size; }));
}

TEST_F(KmvTest, CutAtEveryByteDeliversExactlyTheWholePackets) {
  File file;
  file.FillTwoSeconds();
  file.Finish(2000);
  const std::string& bytes = file.Bytes();
  for (std::size_t size = 0; size <= bytes.size(); size += size < file.DataEnd() + 30 ? 1 : 97) {
    ASSERT_EQ(Open(bytes.substr(0, size)), size < 404 ? -1 : 1) << size;
    if (size < 404) continue;
    const std::size_t whole = WholePackets(file, size);
    const auto audio = std::count_if(file.Packets().begin(), file.Packets().begin() + static_cast<long>(whole),
                                     [](const Packet& packet) { return !packet.video; });
    ASSERT_EQ(m_reader.GetAudioFrameCount(), audio) << size;
    ExpectPackets(m_reader, file.Packets(), 0, whole);
    ASSERT_FALSE(HasFatalFailure()) << size;
  }
}

// Every operation once, frames to the end; the file is damaged, so nothing is known but that all of it ends.
void Exercise(CKmvFile& reader, std::size_t fileSize) {
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
  while (ReadFrame(reader).result >= 0) ASSERT_LT(++frames, fileSize);
}

TEST_F(KmvTest, EveryFieldDamagedEndsCleanly) {
  File file;
  file.FillTwoSeconds();
  file.Finish(2000);
  std::vector<std::size_t> fields;
  for (std::size_t at = 0; at < 404; at += 4) fields.push_back(at);
  for (const Packet& packet : file.Packets()) {
    for (std::size_t word = 0; word < 24; word += 4) fields.push_back(packet.offset + word);
  }
  for (std::size_t at = 0; at < 24; at += 4) fields.push_back(file.DataEnd() + at);
  for (std::size_t at = 0; at < 416; at += 4) fields.push_back(file.DataEnd() + 7212 + at);
  for (const std::size_t field : fields) {
    const std::uint32_t before = GetU32(file.Bytes(), field);
    for (const std::uint32_t value : {0u, 1u, 0x7fffffffu, 0xffffffffu, before + 1, before - 1}) {
      std::string bytes = file.Bytes();
      SetU32(bytes, field, value);
      SCOPED_TRACE("field " + std::to_string(field) + " value " + std::to_string(value));
      if (Open(bytes) == 1) Exercise(m_reader, bytes.size());
      ASSERT_FALSE(HasFatalFailure());
    }
  }
}

TEST_F(KmvTest, DamageIsPassedOverInWholeWords) {
  File file;
  for (std::uint32_t n = 0; n < 6; ++n) file.Video(true, 1000 + n, std::string(n == 3 ? 42 : 40, 'p'));
  file.Finish(2000);
  std::string bytes = file.Bytes();
  SetU32(bytes, file.Packets()[1].offset, 0);
  ASSERT_EQ(Open(bytes), 1);
  EXPECT_TRUE(ReadFrame(m_reader) == file.Packets()[0]);
  EXPECT_TRUE(ReadFrame(m_reader) == file.Packets()[2]);
  // The packets behind number 3 stand off the words counted from number 3: all are passed over.
  SetU32(bytes, file.Packets()[3].offset, 0);
  ASSERT_EQ(Open(bytes), 1);
  EXPECT_TRUE(ReadFrame(m_reader) == file.Packets()[0]);
  EXPECT_TRUE(ReadFrame(m_reader) == file.Packets()[2]);
  EXPECT_EQ(ReadFrame(m_reader).result, -1);
}

TEST_F(KmvTest, DamagedEndIsReplacedByAScan) {
  File file;
  file.FillTwoSeconds();
  file.Finish(2000);
  const std::size_t tail = file.DataEnd() + 7212;
  for (const std::uint32_t indexOffset : {0u, 403u, 0xffffffffu, static_cast<std::uint32_t>(file.DataEnd()) + 1}) {
    std::string bytes = file.Bytes();
    SetU32(bytes, tail + 8, indexOffset);
    ASSERT_EQ(Open(bytes), 1);
    EXPECT_EQ(m_reader.GetVideoFrameCount(), 1) << indexOffset;
    ExpectPackets(m_reader, file.Packets(), 0, file.Packets().size());
  }
}

TEST_F(KmvTest, IndexThatPointsBehindTheDataIsNotFollowed) {
  File file;
  file.FillTwoSeconds();
  file.Finish(2000);
  for (const std::uint32_t offset : {static_cast<std::uint32_t>(file.DataEnd()), 0xfffffff0u}) {
    std::string bytes = file.Bytes();
    SetU32(bytes, file.DataEnd() + 12 + 4, offset);
    ASSERT_EQ(Open(bytes), 1);
    EXPECT_EQ(m_reader.SeekTimeOffset(1), -1);
    EXPECT_EQ(m_reader.MoveNextKeyFrame(), -1);
    ExpectPackets(m_reader, file.Packets(), 0, file.Packets().size());
  }
}

// The writer's steps, down to single bytes; the reader looks in after each.
TEST_F(KmvTest, GrowingFileIsFollowedToItsEnd) {
  File file;
  file.FillTwoSeconds();
  file.Finish(2000);
  const std::string& bytes = file.Bytes();
  ASSERT_EQ(Open(bytes.substr(0, 404)), 1);
  std::size_t delivered = 0;
  for (std::size_t size = 404; size <= bytes.size(); size += size < file.DataEnd() + 30 ? 7 : 211) {
    fake::WriteFile(m_path, bytes.substr(0, size));
    const std::size_t whole = WholePackets(file, size);
    ExpectPackets(m_reader, file.Packets(), delivered, whole);
    ASSERT_FALSE(HasFatalFailure()) << size;
    delivered = whole;
  }
  fake::WriteFile(m_path, bytes);
  EXPECT_EQ(ReadFrame(m_reader).result, -1);
  EXPECT_EQ(delivered, file.Packets().size());
}

TEST_F(KmvTest, FileFinishedBehindTheReadersBackEndsWhereItsIndexBegins) {
  File file;
  file.FillTwoSeconds();
  ASSERT_EQ(Open(file.Bytes()), 1);
  EXPECT_TRUE(ReadFrame(m_reader) == file.Packets()[0]);
  file.Finish(2000);
  fake::WriteFile(m_path, file.Bytes());
  ExpectPackets(m_reader, file.Packets(), 1, file.Packets().size());
}

TEST_F(KmvTest, StampsThatRunBackOrWrapKeepTheScanSane) {
  File wrapping;
  wrapping.Video(true, 0xfffffc18, "a");
  wrapping.Video(true, 1000, "2 s later");
  ASSERT_EQ(Open(wrapping.Bytes()), 1);
  EXPECT_EQ(m_reader.GetTimeDuration(), 2);
  File late;
  late.Audio(5000, "first in the file");
  late.Video(true, 4990, "but earlier");
  late.Video(true, 7000, "b");
  late.Audio(4000, "far back");
  ASSERT_EQ(Open(late.Bytes()), 1);
  EXPECT_EQ(m_reader.GetTimeDuration(), 2);
  ASSERT_EQ(m_reader.SeekTimeOffset(0), 0);
  EXPECT_EQ(ReadFrame(m_reader).payload, "but earlier");
}

}  // namespace
}  // namespace kmvtest
