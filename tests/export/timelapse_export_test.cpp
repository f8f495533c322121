#include <gmock/gmock.h>

#include <cerrno>

#include "export/timelapse_job.h"
#include "tests/export/export_records.h"
#include "tests/record/file_faults.h"

namespace {

using namespace exporttest;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

class TimelapseExportTest : public ExportTest {
 protected:
  std::string Dat() { return Path("/tmp/out.dat"); }
  // The payloads of a stream's key pictures at these times, one after the other.
  static std::string Keys(const std::vector<int>& times) {
    std::string bytes;
    for (const int ms : times) bytes += "v" + std::to_string(ms) + "." + std::string(160, 'v');
    return bytes;
  }
};

// A picture is taken when more than the interval, 1.2 s here, lies behind the one before.
TEST_F(TimelapseExportTest, TakesOneKeyFrameAnInterval) {
  AddKmv("080000", 0, 6000);
  AddMp4("080006", 6000, 9500);
  EXPECT_EQ(RunTimelapse(5, m_output), 0);
  const fake::Mp4Clip clip = fake::ReadMp4(m_output);
  EXPECT_THAT(Times(clip, true, true), ElementsAre("v0k", "v40k", "v80k", "v120k", "v160k"));
  std::string bytes;
  for (const fake::Mp4Frame& frame : clip.frames) bytes += frame.data;
  EXPECT_EQ(bytes, Keys({0, 2000, 4000, 6000, 8000}));
  EXPECT_THAT(m_platform.CallsTo("Emp4MuxerOpen"),
              ElementsAre(HasSubstr("out.mp4.part, 1 1920 1080 25 0, 0 0 0 0 0, 120 2082844800)")));
  EXPECT_TRUE(m_platform.Logged("25 fps. target seconds=120, src timestamp interval=1200\n\n"));
  EXPECT_TRUE(m_platform.Logged("total frames: 5, spend "));
}

// Files are chosen by the span, pictures are not. With key frames two seconds apart the file's last second is not
// in its index.
TEST_F(TimelapseExportTest, IndexAndSteppingAgree) {
  for (const int keyMs : {1000, 2000}) {
    m_platform.records.clear();
    Stream stream;
    stream.framesPerGroup = keyMs / 100;
    AddKmv("075950", -10000, 30000, stream);
    for (const int seconds : {10, 60, 300}) {  // intervals of 14.4 s, 2.4 s and 0.48 s
      unlink(Dat().c_str());
      EXPECT_EQ(RunTimelapse(seconds, Dat()), 0);
      std::vector<int> expected;
      const int interval = static_cast<int>(60000.0 / (seconds * 25 / 60.0));
      for (int ms = -10000; ms < 30000; ms += keyMs) {
        if (expected.empty() || ms - expected.back() > interval) expected.push_back(ms);
      }
      EXPECT_EQ(fake::ReadFile(Dat()), Keys(expected)) << keyMs << " " << seconds;
    }
  }
}

// Key frames hardly closer than the interval: five out of six, where the plain rule takes every second one.
TEST_F(TimelapseExportTest, EvenlyAndWithTheGapsBetweenFiles) {
  AddKmv("080000", 0, 60000);
  AddKmv("080100", 60000, 120000);
  AddKmv("080300", 180000, 182000);
  const auto job = std::make_shared<record::TimelapseJob>(
      record::ExportRequest{9000, {{2024, 1, 30, 28800, 29100}}, m_output, Endings::Done, nullptr},
      record::TimelapseSettings{10, 1200, true, true});
  ASSERT_EQ(job->Start("ExportThread", job), 0);
  EXPECT_EQ(Endings::Get().Await(9000), 0);
  EXPECT_EQ(fake::ReadMp4(m_output).frames.size(), 101u);
  const record::TimelapseJob::Covered& covered = job->CoveredTime();
  EXPECT_EQ(covered.toMs - covered.fromMs, 182000);
  ASSERT_EQ(covered.gaps.Gaps().size(), 1u);
  EXPECT_EQ(covered.gaps.Gaps()[0].fromMs - covered.fromMs, 120000);
  EXPECT_EQ(covered.gaps.Gaps()[0].toMs - covered.fromMs, 180000);
}

// Behind the last key frame the index is empty, and leads to the begin; a damaged one leads anywhere.
TEST_F(TimelapseExportTest, AnIndexThatLeadsBackRepeatsNothing) {
  Stream fourSeconds;
  fourSeconds.framesPerGroup = 40;
  for (const bool isDamaged : {false, true}) {
    AddKmv("080000", 0, 60000, fourSeconds);
    if (isDamaged) {
      std::string bytes = fake::ReadFile(Full("080000"));
      const size_t slots = bytes.size() - 416 - 1800 * 4;
      for (const size_t second : {43, 44, 45, 46}) kmvtest::SetU32(bytes, slots + second * 4, 404);
      fake::WriteFile(Full("080000"), bytes);
    }
    unlink(Dat().c_str());
    EXPECT_EQ(RunTimelapse(10, Dat()), 0);  // every 14.4 s
    EXPECT_EQ(fake::ReadFile(Dat()), Keys({0, 16000, 32000, 48000})) << isDamaged;
  }
}

TEST_F(TimelapseExportTest, ARawFileKeepsTheEndOfAnOlderOne) {
  AddKmv("080000", 0, 3000);
  fake::WriteFile(Dat(), std::string(1000, 'o'));
  EXPECT_EQ(RunTimelapse(120, Dat()), 0);
  const std::string pictures = Keys({0, 2000});
  EXPECT_EQ(fake::ReadFile(Dat()), pictures + std::string(1000 - pictures.size(), 'o'));
  unlink(Dat().c_str());
  fake::WriteFile(Dat() + ".part", std::string(1000, 'o'));  // of an export that died
  EXPECT_EQ(RunTimelapse(120, Dat()), 0);
  EXPECT_EQ(fake::ReadFile(Dat()), pictures);
  EXPECT_FALSE(fake::Exists(Dat() + ".part"));
}

TEST_F(TimelapseExportTest, ADiskThatFillsAtEachWrite) {
  AddKmv("080000", 0, 8000);
  for (int k = 1; k <= 5; ++k) {
    unlink(Dat().c_str());
    const fake::FileFault fault(fake::FileCall::kWrite, "out.dat.part", k, true, ENOSPC);
    EXPECT_EQ(RunTimelapse(120, Dat()), 0);
    EXPECT_EQ(fake::Exists(Dat()), k > 4);
    std::vector<int> written;
    for (int ms = 0; ms < 8000 && static_cast<int>(written.size()) + 1 < k; ms += 2000) written.push_back(ms);
    EXPECT_EQ(fake::ReadFile(k <= 4 ? Dat() + ".part" : Dat()), Keys(written));
  }
  EXPECT_EQ(m_platform.CountLogged(" failed, err = No space left on device\n\n\n"), 4);
  for (const fake::FileCall call : {fake::FileCall::kOpen, fake::FileCall::kSync}) {
    unlink(Dat().c_str());
    const fake::FileFault fault(call, "out.dat.part", 1, true, EIO);
    EXPECT_EQ(RunTimelapse(120, Dat()), call == fake::FileCall::kOpen ? 0 : -1);
    EXPECT_FALSE(fake::Exists(Dat()));
  }
}

}  // namespace
