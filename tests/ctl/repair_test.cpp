// Files that lost their end: how they are told, and how they are repaired.
#include <gmock/gmock.h>

#include <csignal>
#include <cstring>

#include "record/types.h"
#include "tests/ctl/ctl_run.h"

namespace fs = std::filesystem;
using testing::Contains;
using testing::HasSubstr;

namespace ctl {
namespace {

class RepairTest : public CtlTest {
 protected:
  fs::path RecordClip() {
    const Result recorded = Run({"record", "--input", Clip(1), "--kind", "motion"});
    EXPECT_EQ(recorded.code, 0) << recorded.err;
    return Records().at(0);
  }

  Json Info(const fs::path& record, int code) const {
    const Result info = Run({"--json", "info", record.string()});
    EXPECT_EQ(info.code, code) << info.out << info.err;
    return info.Objects().at(0);
  }
};

fs::path SideFile(const fs::path& record) {
  return record.string() + ".info";
}

RecordInfoStruct ReadSide(const fs::path& record) {
  RecordInfoStruct info = {};
  const std::string bytes = ReadFile(SideFile(record));
  EXPECT_EQ(bytes.size(), sizeof info);
  std::memcpy(&info, bytes.data(), std::min(bytes.size(), sizeof info));
  return info;
}

struct KillCase {
  const char* container;
  const char* noEnd;
  const char* repaired;  // with the number of frames behind it
};

class RepairKillTest : public RepairTest, public testing::WithParamInterface<KillCase> {};
INSTANTIATE_TEST_SUITE_P(, RepairKillTest,
                         testing::Values(KillCase{"kmv", "no tail: recording did not end properly",
                                                  "index and tail written behind "},
                                         KillCase{"avi", "no index: recording did not end properly",
                                                  "index and header sizes written behind "}),
                         [](const auto& info) { return std::string(info.param.container); });

TEST_P(RepairKillTest, IsToldAndRepaired) {
  Process recording(m_directory, Ctl({"record", "--input", CAMERA_CLIP, "--loop", "--pre", "1", "--container",
                                      GetParam().container}));
  const fs::path record = AwaitRecord(150000);
  recording.Signal(SIGKILL);
  recording.Wait();
  const std::vector<Json> before = Frames(record);
  ASSERT_GT(before.size(), 20u) << "plays as it is";

  // Told honestly: the end is that of the last packet, not the planned one ten minutes later.
  const Json listed = Run({"--json", "list"}).Objects().at(0);
  EXPECT_EQ(listed["state"], "interrupted");
  EXPECT_EQ(listed["video_frames"].get<std::size_t>() + listed["audio_frames"].get<std::size_t>(), before.size());
  EXPECT_LE(listed["seconds"], 5);
  EXPECT_LE(listed["end_second"].get<int>() - listed["start_second"].get<int>(), 5);
  const Json info = Info(record, 1);
  EXPECT_EQ(info["lock"], "stale");
  EXPECT_EQ(info.value("tail", false), false);
  EXPECT_THAT(info["inconsistencies"].get<std::vector<std::string>>(), Contains(GetParam().noEnd));

  const std::string bytes = ReadFile(record);
  const Json dry = Run({"--json", "repair", "--dry-run", record.string()}).Objects().at(0);
  EXPECT_EQ(dry["end_written"], true);
  EXPECT_EQ(dry["packets"], before.size());
  EXPECT_EQ(ReadFile(record), bytes);
  EXPECT_TRUE(fs::exists(LockFile(record)));

  const Result done = Run({"repair", record.string()});
  EXPECT_EQ(done.code, 0) << done.err;
  EXPECT_THAT(done.out, HasSubstr(GetParam().repaired + std::to_string(before.size())));
  EXPECT_FALSE(fs::exists(LockFile(record)));
  EXPECT_EQ(Frames(record), before);
  EXPECT_EQ(dry["size"], fs::file_size(record));
  Info(record, 0);
  EXPECT_EQ(Run({"--json", "list"}).Objects().at(0)["state"], "complete");
  EXPECT_EQ(Run({"repair", record.string()}).out, record.string() + ": needs nothing\n");
}

TEST_F(RepairTest, AFinishedRecordIsLeftAloneAndItsDamageIsTold) {
  const fs::path record = RecordClip();
  const auto past = fs::last_write_time(record) - std::chrono::hours(1);
  for (const fs::path& path : {record, SideFile(record)}) fs::last_write_time(path, past);
  const std::string bytes = ReadFile(record);
  const std::string side = ReadFile(SideFile(record));
  const Result result = Run({"repair", record.string()});
  EXPECT_EQ(result.code, 0);
  EXPECT_EQ(result.out, record.string() + ": needs nothing\n");
  EXPECT_EQ(ReadFile(record), bytes);
  EXPECT_EQ(ReadFile(SideFile(record)), side);
  for (const fs::path& path : {record, SideFile(record)}) EXPECT_EQ(fs::last_write_time(path), past);

  std::string damaged = bytes;
  WriteFile(record, damaged.replace(damaged.size() / 3, 4000, 4000, '\xa5'));
  EXPECT_FALSE(Info(record, 1)["inconsistencies"].empty());
  WriteFile(record, bytes);
  Info(record, 0);
  WriteFile(SideFile(record), side.substr(0, 300));
  EXPECT_EQ(Info(record, 1)["side_file"]["state"], "wrong size");
}

TEST_F(RepairTest, CutOffAndWithoutSideFile) {
  const fs::path record = RecordClip();
  const std::vector<Json> whole = Frames(record);
  const RecordInfoStruct side = ReadSide(record);
  const std::string bytes = ReadFile(record);
  WriteFile(record, bytes.substr(0, bytes.size() / 2));
  fs::remove(SideFile(record));

  EXPECT_GT(Info(record, 1)["torn_bytes"], 0);
  const std::vector<Json> kept = Frames(record);
  ASSERT_GT(kept.size(), 5u);
  EXPECT_EQ(kept, std::vector<Json>(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(kept.size())));
  const Result repaired = Run({"repair", record.string()});
  EXPECT_EQ(repaired.code, 0) << repaired.err;
  EXPECT_THAT(repaired.out, HasSubstr(": side file written\n"));
  EXPECT_EQ(Frames(record), kept);
  EXPECT_TRUE(Info(record, 0)["inconsistencies"].empty());

  // The start comes from the name now; the codec configuration from the head.
  const RecordInfoStruct made = ReadSide(record);
  EXPECT_EQ(made.startSeconds, side.startSeconds);
  EXPECT_EQ(made.volLength, side.volLength);
  EXPECT_EQ(std::memcmp(made.volData, side.volData, sizeof made.volData), 0);
  EXPECT_EQ(static_cast<std::size_t>(made.videoFrames + made.audioFrames), kept.size());
  EXPECT_EQ(made.videoBytes + made.audioBytes, made.totalBytes);

  // Copies carried to a desk for a look, whole and cut: a side file belongs to the tree.
  const fs::path copy = m_directory / "copy.kmv";
  WriteFile(copy, bytes);
  EXPECT_TRUE(Info(copy, 0)["inconsistencies"].empty());
  EXPECT_EQ(Run({"repair", copy.string()}).out, copy.string() + ": needs nothing\n");
  EXPECT_EQ(ReadFile(copy), bytes);
  WriteFile(copy, bytes.substr(0, bytes.size() / 2));
  Info(copy, 1);
  EXPECT_EQ(Run({"repair", copy.string()}).code, 0);
  Info(copy, 0);
  EXPECT_FALSE(fs::exists(SideFile(copy)));
}

}  // namespace
}  // namespace ctl
