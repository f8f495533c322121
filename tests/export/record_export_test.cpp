// One record export from the day's files to what the multiplexer gets.
#include <gmock/gmock.h>

#include <cerrno>
#include <new>

#include "export/record_job.h"
#include "tests/export/export_records.h"
#include "tests/format/avi_bytes.h"

namespace {

using namespace exporttest;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::SizeIs;

class RecordExportTest : public ExportTest {};

std::vector<std::string> Sequence(const std::string& medium, int fromMs, int toMs, int step, int group) {
  std::vector<std::string> times;
  for (int ms = fromMs; ms < toMs; ms += step)
    times.push_back(medium + std::to_string(ms) + (group != 0 && ms / step % group == 0 ? "k" : ""));
  return times;
}

// From the first key frame within, to the end of the last second; nothing of the file that only begins there.
TEST_F(RecordExportTest, HoldsWhatLiesWithinTheSpan) {
  AddKmv("080000", 0, 6000);
  AddKmv("080006", 6000, 9000);
  m_clock.Reset(2024, 1, 31, 8, 15, 0);
  const fake::Mp4Clip clip = Export({8, 0, 2, 8, 0, 4});
  EXPECT_EQ(m_result, 0);
  EXPECT_EQ(Times(clip, true, false), Sequence("v", 0, 3000, 100, 10));
  EXPECT_EQ(Times(clip, false, true), Sequence("a", 0, 3000, 100, 0));
  EXPECT_THAT(clip.frames.front().data, ::testing::StartsWith("v2000."));
  EXPECT_THAT(m_platform.CallsTo("Emp4MuxerOpen"),
              ElementsAre(HasSubstr("out.mp4.part, 1 1920 1080 23 0, 1 12 320 8000 1, 2 2082844800)")));
  EXPECT_TRUE(m_platform.Logged("codec=H.264(1), 1920X1080, 23 fps. target seconds=2\n\n"));
  EXPECT_TRUE(m_platform.Logged(Full("080006") + ": nPosBgnSecond 28806 >= nSecondEnd 28804\n\n"));
  EXPECT_TRUE(m_platform.Logged("total video frames: 30, audio frames: 30"));
  EXPECT_TRUE(m_platform.Logged("finished proc 2 files"));
  EXPECT_FALSE(fake::Exists(m_output + ".part"));
}

TEST_F(RecordExportTest, BeginsWithAKeyFrameAndKeepsGaps) {
  AddKmv("080000", 0, 3000, {10, 10, true, 0, {}});
  AddKmv("080010", 10000, 12000);
  AddKmv("080030", 30500, 31500, {10, 5, true, 0, {}});  // its name lies half a second before its first picture
  const fake::Mp4Clip clip = Export({8, 0, 1, 8, 1, 0});
  const std::vector<std::string> times = Times(clip, true, false);
  ASSERT_THAT(times, SizeIs(50));
  EXPECT_EQ(times[0], "v0k");
  EXPECT_EQ(times[19], "v1900");
  EXPECT_EQ(times[20], "v9000k");
  EXPECT_EQ(times[40], "v29500k");
  EXPECT_EQ(Times(clip, false, true)[40], "a29500");
}

// Each file begins with the key frame at least half a second before the end of the one before it; their names say
// so by whole seconds only.
TEST_F(RecordExportTest, NeighboursThatShareFramesGiveEachOnceAndInOrder) {
  AddKmv("080000", 700, 4600, {10, 10, true, 50, {}});
  AddKmv("080004", 3000, 8300, {10, 10, true, 50, {}});
  AddKmv("080008", 8300, 9000, {10, 10, true, 50, {}});  // begins within a group: its picture is shown once more
  const fake::Mp4Clip kmv = Export();
  EXPECT_EQ(Times(kmv, true, false), Sequence("v", 0, 7300, 100, 10));
  EXPECT_EQ(Times(kmv, false, true), Sequence("a", 50, 8050, 100, 0));
}

TEST_F(RecordExportTest, SoDoFilesWithoutStampsOfTheirStream) {
  AddMp4("080000", 0, 4600);
  AddMp4("080004", 3000, 8300);
  AddMp4("080008", 8000, 9000);
  const fake::Mp4Clip clip = Export();
  EXPECT_EQ(Times(clip, true, false), Sequence("v", 0, 9000, 100, 10));
  EXPECT_EQ(Times(clip, false, true), Sequence("a", 0, 9000, 100, 0));
}

// Pictures every 200 ms and sound every 64 ms, of which an AVI file tells only what came in between.
TEST_F(RecordExportTest, SoundOfAviFilesIsInStepWithinAFrame) {
  const auto endOf = [](int ms) { return std::string(70, static_cast<char>('A' + ms / 200 % 50)); };
  const auto add = [&](const std::string& time, int fromMs, int toMs) {
    avitest::File file;
    int sound = (fromMs + 63) / 64 * 64;
    for (int ms = fromMs; ms < toMs; ms += 200) {
      // The writer puts the codec configuration in front of a file's first picture.
      file.Video(ms % 1000 == 0,
                 (ms == fromMs ? std::string(30, 'c') : "") + "v" + std::to_string(ms) + endOf(ms));
      for (; sound < ms + 200; sound += 64) file.Audio("a" + std::to_string(sound) + "." + std::string(505, 'a'));
    }
    file.Finish();
    AddFile(time, "avi", file.Bytes(), (toMs - fromMs) / 1000.0);
  };
  add("080000", 0, 6600);
  add("080006", 5000, 9000);  // its name lies a second behind its first picture
  const fake::Mp4Clip clip = Export();
  std::vector<std::string> pictures;
  for (int ms = 0; ms < 9000; ms += 200)
    pictures.push_back("v" + std::to_string(ms) + (ms % 1000 == 0 ? "k" : ""));
  EXPECT_EQ(Times(clip, true, false), pictures);
  int lastTrue = -64;
  for (const fake::Mp4Frame& frame : clip.frames) {
    if (frame.video) continue;
    const int trueMs = std::atoi(frame.data.c_str() + 1);
    EXPECT_NEAR(static_cast<int>(frame.timestampMs), trueMs, 64);
    EXPECT_NEAR(trueMs - lastTrue, 64, 64) << "once and in order, but for one where files meet";
    lastTrue = trueMs;
  }
  EXPECT_GT(lastTrue, 8900);
}

// The end of a long file comes out as if all before it had been read, which a hole there shows has not been.
TEST_F(RecordExportTest, LateSpansDoNotReadWhatIsBefore) {
  avitest::File avi(true, VIDEO_CODEC_H264, 30);  // 33 ms a frame: stamps and seconds drift apart
  avi.FillSeconds(60, 30);
  avi.Finish();
  std::string bytes = avi.Bytes();
  const DayTimeSpan late = {8, 0, 50, 8, 0, 53};
  std::vector<std::string> expected;
  AddFile("080000", "avi", bytes, 60);
  for (const std::size_t hole : {0, 20000}) {
    bytes.replace(avi.HeaderSize(), hole, hole, '\0');
    fake::WriteFile(Full("080000", "avi"), bytes);
    std::vector<std::string> read;
    for (const fake::Mp4Frame& frame : Export(late).frames)
      read.push_back(frame.data + " " + std::to_string(frame.timestampMs));
    if (hole == 0) expected = read;
    EXPECT_EQ(read, expected);
  }
  // Frame n bears (n + 1) * 33 ms: the first key frame from 50 s on, and the last frame before 54 s.
  ASSERT_THAT(expected, SizeIs(2 * (1635 - 1530 + 1)));
  EXPECT_THAT(expected.front(), HasSubstr("frame 1530"));
  EXPECT_THAT(expected.back(), HasSubstr("sound 1635"));

  m_platform.records.clear();
  AddMp4("080040", 40000, 55000);
  for (const int seekResult : {0, -1}) {
    m_mp4.plan.seekResult = seekResult;
    const fake::Mp4Clip clip = Export(late);
    EXPECT_EQ(Times(clip, true, false), Sequence("v", 0, 4000, 100, 10));
    EXPECT_THAT(clip.frames.front().data, ::testing::StartsWith("v50000."));
    EXPECT_THAT(clip.frames.back().data, ::testing::StartsWith("a53900."));
  }
  EXPECT_THAT(m_platform.CallsTo("Emp4DemuxerSeek"), ElementsAre(HasSubstr("(8000)"), HasSubstr("(8000)")));
}

// An event within a running recording has been exported with it.
TEST_F(RecordExportTest, AFileWithinAnotherGivesNothing) {
  AddKmv("080000", 0, 8000);
  AddKmv("080003", 3000, 5000);
  AddMp4("080004", 4000, 6000);
  EXPECT_EQ(Times(Export(), true, true), [] {
    std::vector<std::string> both;
    for (int ms = 0; ms < 8000; ms += 100) {
      both.push_back("v" + std::to_string(ms) + (ms % 1000 == 0 ? "k" : ""));
      both.push_back("a" + std::to_string(ms));
    }
    return both;
  }());
}

TEST_F(RecordExportTest, ContainersMixAndSoundKeepsItsKind) {
  Stream alaw;
  alaw.head.audioCodec = "G.711";
  AddKmv("080000", 0, 2000, alaw);
  AddMp4("080002", 2000, 4000, 11);  // the same under another name
  AddMp4("080004", 4000, 6000, 10);  // AAC cannot go into that track
  Stream none;
  none.audio = none.head.audio = false;
  AddKmv("080006", 6000, 7000, none);
  const fake::Mp4Clip clip = Export();
  EXPECT_EQ(Times(clip, true, false), Sequence("v", 0, 7000, 100, 10));
  EXPECT_EQ(Times(clip, false, true), Sequence("a", 0, 4000, 100, 0));
  EXPECT_EQ(clip.audio.codec, 11);
}

TEST_F(RecordExportTest, EachNameOfACodecGetsItsTrack) {
  const auto track = [this](const char* video, const char* audio) {
    m_platform.records.clear();
    Stream stream;
    stream.head.videoCodec = video;
    stream.head.audioCodec = audio;
    AddKmv("080000", 0, 1000, stream);
    const fake::Mp4Clip clip = Export();
    EXPECT_EQ(m_result, 0);
    EXPECT_THAT(clip.frames, SizeIs(clip.audio.enabled ? 20 : 10));
    return std::vector<int>{clip.video.codec, clip.audio.enabled, clip.audio.codec, clip.audio.samples_per_frame};
  };
  EXPECT_THAT(track("h265", "G.711"), ElementsAre(2, 1, 11, 320));
  EXPECT_THAT(track("H.265", "PCMA"), ElementsAre(2, 1, 12, 320));
  EXPECT_THAT(track("H264", "AAC"), ElementsAre(1, 1, 10, 1024));
  EXPECT_THAT(track("?", "PCM"), ElementsAre(1, 0, 0, 0));
  EXPECT_TRUE(m_platform.Logged("######### Error: audio_type PCM not support... \n\n"));
}

TEST_F(RecordExportTest, EndsWhereThePicturesChange) {
  AddKmv("080000", 0, 1000);
  Stream other;
  other.head.videoCodec = "H.265";
  AddKmv("080002", 2000, 3000, other);
  AddKmv("080004", 4000, 5000);
  EXPECT_THAT(Export().frames, SizeIs(20));
  EXPECT_EQ(m_result, 0);
  EXPECT_TRUE(m_platform.Logged(Full("080002") + ": video type H.264 change to H.265, break\n\n"));
}

// A clip for each stretch of the same pictures, though a file reaches into the next one's time; without the
// damaged picture, what leans on it, and the damaged sound.
TEST_F(RecordExportTest, GoesOnBehindChangesAndDamage) {
  Stream other;
  other.head.videoCodec = "H.265";
  AddKmv("080000", 0, 4000);
  AddKmv("080002", 2000, 3000, other);
  AddKmv("080004", 4000, 8000);
  const auto isWhole = [](const record::MediaFrame& frame, const record::ClipWriter&) {
    const std::string payload(reinterpret_cast<const char*>(frame.data), static_cast<size_t>(frame.length));
    const int ms = std::atoi(payload.c_str() + 1);
    return frame.isVideo ? ms != 2500 && ms != 6000 : ms != 7500;
  };
  std::vector<std::vector<std::string>> clips;
  std::vector<unsigned long> leftOut;
  m_id = 8000;
  for (std::vector<record::ExportPiece> pieces = {{2024, 1, 30, 28800, 28810}}; !pieces.empty();) {
    const auto job = std::make_shared<record::RecordExportJob>(
        record::ExportRequest{++m_id, pieces, m_output, Endings::Done, isWhole},
        record::RecordExportSettings{10, false});
    ASSERT_EQ(job->Start("ExportThread", job), 0);
    EXPECT_EQ(Endings::Get().Await(m_id), 0);
    clips.push_back(Times(fake::ReadMp4(m_output), true, false));
    leftOut.insert(leftOut.end(), {job->LeftOut().damaged, job->LeftOut().leaning});
    pieces = job->Rest();
  }
  ASSERT_THAT(clips, SizeIs(3));
  EXPECT_THAT(clips[0], SizeIs(35));
  EXPECT_EQ(clips[0][25], "v3000k");
  EXPECT_EQ(clips[1], Sequence("v", 0, 500, 100, 10));
  EXPECT_THAT(clips[2], SizeIs(30));
  EXPECT_EQ(clips[2][20], "v3000k");
  EXPECT_THAT(leftOut, ElementsAre(1, 4, 1, 4, 2, 9));
}

TEST_F(RecordExportTest, WithoutMemoryTheFileHoldsWhatCameBefore) {
  AddKmv("080000", 0, 2000);
  m_id = 8100;
  const auto runsOut = [](const record::MediaFrame&, const record::ClipWriter& clip) {
    if (clip.VideoFrames() == 12) throw std::bad_alloc();
    return true;
  };
  const auto job = std::make_shared<record::RecordExportJob>(
      record::ExportRequest{m_id, {{2024, 1, 30, 28800, 28810}}, m_output, Endings::Done, runsOut},
      record::RecordExportSettings{10, false});
  ASSERT_EQ(job->Start("ExportThread", job), 0);
  EXPECT_EQ(Endings::Get().Await(m_id), -1);
  EXPECT_EQ(job->Progress().state, EXPORT_FAILED);
  EXPECT_THAT(Times(fake::ReadMp4(m_output), true, false), SizeIs(12));
}

TEST_F(RecordExportTest, PassesOverWhatCannotBeRead) {
  AddFile("080000", "kmv", "no record", 10);
  AddFile("080010", "avi.bak", "no record either", 10);
  AddKmv("080020", 20000, 21000);
  AddKmv("080030", 30000, 31000);
  AddKmv("080040", 40000, 41000);
  // Gone between the listing and its turn; and while it is read, of which nothing is noticed.
  m_platform.OnLog([&](const std::string& text) {
    if (text.find(Full("080020") + " open OK") != std::string::npos) unlink(Full("080020").c_str());
    if (text.find("read finished: " + Full("080020")) != std::string::npos) unlink(Full("080030").c_str());
  });
  EXPECT_THAT(Export().frames, SizeIs(40));
  m_platform.OnLog(nullptr);  // the thread may say its last words after this test
  EXPECT_TRUE(m_platform.Logged("open video file " + Full("080000") + " failed!!!\n\n\n"));
  EXPECT_TRUE(m_platform.Logged("open video file " + Full("080030") + " failed!!!\n\n\n"));
}

TEST_F(RecordExportTest, AFailedWriteEndsItAndSaysHowFarItCame) {
  AddKmv("080000", 0, 2000);
  AddKmv("080002", 2000, 3000);
  static ExportProgress s_last;
  m_id = 7000;
  const auto run = [&](fake::Mp4Plan plan) {
    m_mp4.plan = plan;
    CExportRecord job(++m_id, 2024, 1, 30, kSpan, m_output, Endings::Done);
    job.SetProgressHook([](const ExportProgress& progress, void*) { s_last = progress; }, nullptr);
    EXPECT_EQ(Run(job, m_id), m_mp4.plan.closeError == 0 ? 0 : -1);
    return s_last.state;
  };
  fake::Mp4Plan plan;
  plan.opensToRefuse = 1;
  EXPECT_EQ(run(plan), EXPORT_WRITE_FAILED);
  EXPECT_FALSE(fake::Exists(m_output + ".part"));
  plan = {};
  plan.writeResult = -3;
  EXPECT_EQ(run(plan), EXPORT_WRITE_FAILED);
  plan = {};
  plan.commitResult = 7;
  EXPECT_EQ(run(plan), EXPORT_WRITE_FAILED);
  plan = {};
  plan.closeError = ESTALE;
  EXPECT_EQ(run(plan), EXPORT_WRITE_FAILED);
  EXPECT_TRUE(fake::Exists(m_output + ".part"));
  EXPECT_FALSE(fake::Exists(m_output));
  for (const char* line : {"Emp4MuxerOpen failed. return.\n\n", "Emp4Muxer Write fail:-3\n\n\n",
                           "Emp4MuxerCommit fail:7\n\n\n", "Write finished.\n\n"})
    EXPECT_TRUE(m_platform.Logged(line)) << line;
  EXPECT_EQ(run({}), EXPORT_COMPLETE) << "the same name, now with room";
  EXPECT_EQ(s_last.doneSeconds, s_last.totalSeconds);
  EXPECT_EQ(s_last.videoFrames, 30u);
}

TEST_F(RecordExportTest, NothingInTheSpanMakesNoFile) {
  AddKmv("090000", 3600000, 3601000);
  Export();
  EXPECT_EQ(m_result, 0);
  EXPECT_THAT(m_platform.CallsTo("Emp4MuxerOpen"), SizeIs(0));
  EXPECT_FALSE(fake::Exists(m_output));
}

}  // namespace
