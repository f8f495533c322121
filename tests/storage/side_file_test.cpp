// The `.info` file and the type index: bytes, damage and hostile neighbours.
#include <sys/stat.h>

#include <cstring>
#include <filesystem>

#include "storage/record_info.h"
#include "storage/type_index.h"
#include "tests/support/device_test.h"
#include "tests/support/document_image.h"

namespace record {
namespace {

std::string Bytes(const RecordInfoStruct& info) {
  return std::string(reinterpret_cast<const char*>(&info), sizeof info);
}

RecordInfoStruct DocumentedInfo() {
  RecordInfoStruct info = {};
  std::memcpy(info.volData, "\0\0\0\1\x67\x64\0\x1f", 8);
  info.volLength = 8;
  info.startSeconds = 1706688900;
  info.startMicroseconds = 250000;
  info.endSeconds = 1706688960;
  info.endMicroseconds = 750000;
  info.nTimeSeconds = 61;
  info.keyFrames = 31;
  info.videoFrames = 1500;
  info.audioFrames = 3000;
  info.videoBytes = 900000;
  info.audioBytes = 480000;
  info.totalBytes = 1380000;
  return info;
}

class RecordInfoTest : public fake::DeviceTest {
 protected:
  const std::string m_path = Path("/clip.kmv.info");
};

TEST_F(RecordInfoTest, MatchesItsImageOnTheWayOutAndIn) {
  const std::string image = fake::DocumentImage("record-info");
  EXPECT_EQ(WriteRecordInfo(m_path, DocumentedInfo()), 304);
  EXPECT_TRUE(fake::ReadFile(m_path) == image);

  RecordInfoStruct read;
  std::memset(&read, 0xee, sizeof read);
  EXPECT_EQ(ReadRecordInfo(m_path, read), 304);
  EXPECT_TRUE(Bytes(read) == image);
  EXPECT_EQ(RecordInfoSeconds(read), 61u);
}

TEST_F(RecordInfoTest, ReadsWhatAShortFileHoldsAndIsWrittenOverWhatStandsThere) {
  RecordInfoStruct info;
  EXPECT_EQ(ReadRecordInfo(m_path, info), -1);
  for (const size_t size : {0u, 1u, 303u, 304u, 305u, 5000u}) {
    fake::WriteFile(m_path, std::string(size, 'i'));
    EXPECT_EQ(ReadRecordInfo(m_path, info), static_cast<int>(size < 304 ? size : 304));
    EXPECT_EQ(WriteRecordInfo(m_path, DocumentedInfo()), 304);
    EXPECT_TRUE(fake::ReadFile(m_path) == Bytes(DocumentedInfo())) << size;
  }
}

TEST_F(RecordInfoTest, IsNeitherWrittenThroughALinkNorStuckInAPipe) {
  RecordInfoStruct info;
  fake::WriteFile(Path("/victim"), "keep");
  std::filesystem::create_symlink(Path("/victim"), m_path);
  EXPECT_EQ(WriteRecordInfo(m_path, DocumentedInfo()), -1);
  EXPECT_EQ(fake::ReadFile(Path("/victim")), "keep");

  std::filesystem::remove(m_path);
  ASSERT_EQ(mkfifo(m_path.c_str(), 0600), 0);
  EXPECT_EQ(WriteRecordInfo(m_path, DocumentedInfo()), -1);
  EXPECT_EQ(ReadRecordInfo(m_path, info), 0);

  std::filesystem::remove(m_path);
  std::filesystem::create_directory(m_path);
  EXPECT_EQ(WriteRecordInfo(m_path, DocumentedInfo()), -1);
  EXPECT_EQ(ReadRecordInfo(m_path, info), 0);
}

TEST(RecordInfoSpan, IsRoundedToTheNearestSecond) {
  struct Case {
    std::uint32_t startSeconds, startMicroseconds, endSeconds, endMicroseconds;
    long long milliseconds;
    std::uint32_t seconds;
  };
  const Case cases[] = {
      {100, 0, 102, 499000, 2499, 2},
      {100, 0, 102, 500000, 2500, 3},
      {100, 999999, 101, 0, 0, 0},
      {100, 900000, 101, 400000, 500, 1},
      {0, 0, 0xffffffff, 999999, 4294967295999, 0},  // rounds up to 2^32
      {200, 0, 100, 0, -100000, 0},                  // an end before the start is no length
  };
  for (const Case& each : cases) {
    RecordInfoStruct info = {};
    info.startSeconds = each.startSeconds;
    info.startMicroseconds = each.startMicroseconds;
    info.endSeconds = each.endSeconds;
    info.endMicroseconds = each.endMicroseconds;
    EXPECT_EQ(RecordInfoSpanMs(info), each.milliseconds);
    EXPECT_EQ(RecordInfoSeconds(info), each.seconds) << each.milliseconds;
  }
}

class TypeIndexTest : public fake::DeviceTest {
 protected:
  const std::string m_path = Path("/rec_type.idx");
  const std::string m_empty = std::string(kTypeIndexMinutes, 'C');

  std::string Load(bool expected) {
    std::string minutes(kTypeIndexMinutes, '?');
    EXPECT_EQ(LoadTypeIndex(m_path, minutes.data()), expected);
    return minutes;
  }
};

TEST_F(TypeIndexTest, MatchesItsImage) {
  EXPECT_EQ(Load(false), m_empty);
  std::string minutes = m_empty;
  for (const int minute : {600, 601}) {
    minutes[static_cast<size_t>(minute)] = 'M';
    ASSERT_TRUE(StoreTypeIndexMinute(m_path, minutes.data(), minute));
  }
  EXPECT_TRUE(fake::ReadFile(m_path) == fake::DocumentImage("type-index"));
  EXPECT_TRUE(Load(true) == minutes);
}

// Two tasks share the file, each with its own idea of the other's minutes.
TEST_F(TypeIndexTest, AMarkLeavesAllOtherMinutesAlone) {
  fake::WriteFile(m_path, std::string(1440, 'x') + "behind");
  ASSERT_TRUE(StoreTypeIndexMinute(m_path, m_empty.data(), 1439));
  EXPECT_EQ(fake::ReadFile(m_path), std::string(1439, 'x') + "Cbehind");
}

TEST_F(TypeIndexTest, AShortFileTellsItsPartAndIsMadeWholeByTheNextMark) {
  for (const size_t size : {0u, 1u, 700u, 1439u}) {
    fake::WriteFile(m_path, std::string(size, 'x'));
    std::string minutes = Load(true);
    EXPECT_EQ(minutes, std::string(size, 'x') + std::string(1440 - size, 'C'));
    minutes[1000] = 'D';
    ASSERT_TRUE(StoreTypeIndexMinute(m_path, minutes.data(), 1000));
    EXPECT_TRUE(fake::ReadFile(m_path) == minutes);
  }
}

TEST_F(TypeIndexTest, WhatIsNoFileNeitherHangsNorIsStored) {
  std::filesystem::create_directory(m_path);
  EXPECT_EQ(Load(true), m_empty);
  EXPECT_FALSE(StoreTypeIndexMinute(m_path, m_empty.data(), 0));
  std::filesystem::remove(m_path);
  ASSERT_EQ(mkfifo(m_path.c_str(), 0600), 0);
  EXPECT_EQ(Load(true), m_empty);
  EXPECT_FALSE(StoreTypeIndexMinute(Path("/nowhere/rec_type.idx"), m_empty.data(), 0));
}

TEST(AlarmLog, EveryCodeHasItsType) {
  const std::string codes = "DEFGHIJKLMNO";
  const int types[] = {0, 10, 1, 6, 9, 11, 2, 3, 4, 5, 7, 8};
  for (int code = -128; code < 128; ++code) {
    const size_t at = code != 0 ? codes.find(static_cast<char>(code)) : std::string::npos;
    EXPECT_EQ(AlarmLogType(static_cast<char>(code)), at != std::string::npos ? types[at] : 1) << code;
  }
}

}  // namespace
}  // namespace record
