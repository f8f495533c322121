// recordctl record, and what it leaves, compared with the clip that it was fed.
#include <gmock/gmock.h>

#include <csignal>
#include <set>
#include <thread>

#include "tests/ctl/ctl_run.h"
#include "tests/host/support/servers.h"

namespace fs = std::filesystem;
using testing::HasSubstr;

namespace ctl {
namespace {

constexpr int kFrameMs = 40;
constexpr int kClipPictures = 300;
// Up to a second and a half, a group of pictures (25 frames), and what the change itself takes.
constexpr int kLongestOverlapMs = 2700;

using Unit = std::string;

// The units of an Annex B stream, without start codes and parameter sets (which may be repeated).
std::vector<Unit> Pictures(const std::string& stream) {
  std::vector<Unit> units;
  std::size_t from = stream.find(std::string("\0\0\1", 3));
  while (from != std::string::npos) {
    from += 3;
    const std::size_t next = stream.find(std::string("\0\0\1", 3), from);
    std::size_t end = next == std::string::npos ? stream.size() : next;
    while (end > from && stream[end - 1] == '\0') --end;
    const int type = stream[from] & 0x1f;
    if (type == 1 || type == 5) units.push_back(stream.substr(from, end - from));
    from = next;
  }
  return units;
}

class RecordTest : public CtlTest {
 protected:
  std::string ClipVideo(const std::string& clip) const {
    return Shell("ffmpeg -nostdin -v error -i " + clip + " -map 0:v -c copy -bsf:v h264_mp4toannexb -f h264 -")
        .out;
  }

  void ExpectDecodes(const fs::path& record) const {
    const Result decoded = Shell("$CTL frames " + record.string() +
                                 " --raw video | ffmpeg -nostdin -v error -xerror -f h264 -i - -f null -");
    EXPECT_EQ(decoded.code, 0);
    EXPECT_EQ(decoded.err, "");
    const Result probed = Shell("$CTL frames " + record.string() +
                                " --raw video | ffprobe -v error -of csv=p=0 "
                                "-show_entries stream=codec_name,width,height -");
    EXPECT_EQ(probed.out, "h264,640,360\n") << probed.err;
  }
};

std::vector<unsigned> VideoStamps(const std::vector<Json>& frames) {
  std::vector<unsigned> stamps;
  for (const Json& frame : frames) {
    if (frame["media"] == "video") stamps.push_back(frame["ts_ms"]);
  }
  return stamps;
}

// Position in the (repeated) clip of the first of `pictures`; fails unless all of them follow in order.
std::size_t PlaceInLoop(const std::vector<Unit>& clip, const std::vector<Unit>& pictures) {
  std::size_t place = 0;
  while (place < clip.size() && clip[place] != pictures.front()) ++place;
  EXPECT_LT(place, clip.size());
  for (std::size_t i = 0; i < pictures.size(); ++i) {
    EXPECT_EQ(pictures[i], clip[(place + i) % clip.size()]) << "picture " << i << " is not the clip's";
    if (testing::Test::HasFailure()) break;
  }
  return place;
}

TEST_F(RecordTest, LoopWithPreRecordAndFileChangeLosesNoPicture) {
  const Result recorded =
      Run({"--json", "--progress", "kv", "record", "--input", CAMERA_CLIP, "--loop", "--kind", "schedule",
           "--container", "kmv", "--duration", "5", "--max-file", "3", "--pre", "2"});
  ASSERT_EQ(recorded.code, 0) << recorded.err;
  EXPECT_THAT(recorded.err, HasSubstr("phase=pre-record buffered=1 wanted=2\n"));
  EXPECT_THAT(recorded.err, HasSubstr("phase=recording elapsed="));
  const std::vector<fs::path> records = Records();
  ASSERT_EQ(records.size(), 2u);
  const std::vector<Json> told = recorded.Objects();
  ASSERT_EQ(told.size(), 2u);

  const std::vector<Unit> clip = Pictures(ClipVideo(CAMERA_CLIP));
  ASSERT_EQ(clip.size(), static_cast<std::size_t>(kClipPictures));
  std::set<unsigned> all;
  std::vector<unsigned> firstStamps;
  std::vector<std::size_t> places;
  for (std::size_t i = 0; i < records.size(); ++i) {
    const std::vector<Json> frames = Frames(records[i]);
    const std::vector<unsigned> stamps = VideoStamps(frames);
    ASSERT_FALSE(stamps.empty());
    EXPECT_TRUE(frames.front()["key"]);
    EXPECT_EQ(told[i]["path"], records[i].string());
    EXPECT_EQ(told[i]["video_frames"], stamps.size());
    EXPECT_EQ(told[i]["span_ms"], stamps.back() - stamps.front());
    all.insert(stamps.begin(), stamps.end());
    firstStamps.push_back(stamps.front());
    const std::vector<Unit> pictures = Pictures(Raw(records[i], "video"));
    EXPECT_EQ(pictures.size(), stamps.size());
    places.push_back(PlaceInLoop(clip, pictures));
    ExpectDecodes(records[i]);
    EXPECT_EQ(Run({"info", records[i].string()}).code, 0);
  }
  for (auto stamp = std::next(all.begin()); stamp != all.end(); ++stamp) {
    EXPECT_NEAR(*stamp - *std::prev(stamp), kFrameMs, 1) << "a hole before " << *stamp;
  }
  // The same time stamp means the same picture in both files.
  EXPECT_EQ((places[1] + kClipPictures - places[0]) % kClipPictures, (firstStamps[1] - firstStamps[0]) / kFrameMs);
  // Two seconds of the past and five of the present.
  EXPECT_GE(all.size() * kFrameMs, 6800u);
  EXPECT_LE(static_cast<int>(VideoStamps(Frames(records[0])).back() - firstStamps[1]), kLongestOverlapMs);
}

TEST_F(RecordTest, AFilePlayedOnceIsKeptWhole) {
  const std::string clip = Clip(2);
  ASSERT_EQ(Run({"record", "--input", clip, "--kind", "alarm"}).code, 0);
  ASSERT_EQ(Records().size(), 1u);
  const fs::path record = Records().front();
  EXPECT_EQ(Pictures(Raw(record, "video")), Pictures(ClipVideo(clip)));
  EXPECT_EQ(Raw(record, "audio"),
            Shell("ffmpeg -nostdin -v error -i " + clip + " -map 0:a -c copy -f mulaw -").out);

  const std::vector<Json> listed = Run({"--json", "list"}).Objects();
  ASSERT_EQ(listed.size(), 1u);
  EXPECT_EQ(listed[0]["kind"], "alarm");
  EXPECT_EQ(listed[0]["state"], "complete");
  EXPECT_EQ(listed[0]["path"], record.string());
  EXPECT_EQ(listed[0]["video_frames"], 50);
  EXPECT_EQ(listed[0]["audio_frames"], 50);
  EXPECT_EQ(listed[0]["seconds"], 2);

  // As `list` on the device would name it, and without the sound.
  const fs::path onDevice = "/" / fs::relative(record, m_root);
  EXPECT_EQ(Run({"info", onDevice.string()}).code, 0);
  ASSERT_EQ(Run({"record", "--input", clip, "--no-audio", "--duration", "1"}).code, 0);
  const Json silent = Run({"--json", "info", Records().back().string()}).Objects().at(0);
  EXPECT_EQ(silent["audio_frames"], 0);
  EXPECT_FALSE(silent.contains("audio"));
}

TEST_F(RecordTest, SubStreamWithPreRecord) {
  const std::string sub = Clip(6);
  const Result recorded = Run({"record", "--input", CAMERA_CLIP, "--sub", sub, "--loop", "--stream", "sub",
                               "--pre", "1", "--duration", "1", "--kind", "motion"});
  ASSERT_EQ(recorded.code, 0) << recorded.err;
  ASSERT_EQ(Records().size(), 1u);
  EXPECT_THAT(Records()[0].filename().string(), HasSubstr("-av-2.kmv"));
  EXPECT_GE(VideoStamps(Frames(Records()[0])).size(), 45u);
  ExpectDecodes(Records()[0]);
}

TEST_F(RecordTest, CtrlCEndsTheFileHoweverOften) {
  Process recording(m_directory, Ctl({"record", "--input", CAMERA_CLIP, "--loop"}));
  const fs::path record = AwaitRecord(60000);

  // Meanwhile it is told as what it is, and left alone.
  EXPECT_EQ(Run({"--json", "list"}).Objects().at(0)["state"], "recording");
  const Result info = Run({"--json", "info", record.string()});
  EXPECT_EQ(info.code, 0) << info.out;
  EXPECT_EQ(info.Objects().at(0)["lock"], "held");
  const Result repair = Run({"repair", record.string()});
  EXPECT_EQ(repair.code, 1);
  EXPECT_THAT(repair.err, HasSubstr(": is being recorded\n"));

  for (const int signal : {SIGINT, SIGINT, SIGTERM}) recording.Signal(signal);
  const Result result = recording.Wait();
  EXPECT_EQ(result.code, 130);
  EXPECT_EQ(result.err, "");
  EXPECT_THAT(result.out, HasSubstr(record.string()));
  const Result after = Run({"--json", "info", record.string()});
  EXPECT_EQ(after.code, 0) << after.out;
  EXPECT_EQ(after.Objects().at(0)["state"], "complete");
  EXPECT_FALSE(fs::exists(LockFile(record)));
}

TEST_F(RecordTest, ACameraThatGoesAwayAndComesBack) {
  record::RtspCamera camera(CAMERA_CLIP);
  ASSERT_TRUE(camera.Start());
  Process recording(m_directory, Ctl({"record", "--input", camera.Url(), "--duration", "8", "--max-file", "5"}));
  AwaitRecord(300000);  // more than three seconds
  camera.Kill();
  std::this_thread::sleep_for(std::chrono::milliseconds(1500));
  ASSERT_TRUE(camera.Start());
  const Result result = recording.Wait();
  EXPECT_EQ(result.code, 0) << result.err;
  EXPECT_THAT(result.err, HasSubstr("recordctl: the camera went away, looking for it: lost the connection to "));
  EXPECT_THAT(result.err, HasSubstr("recordctl: the camera is back\n"));
  int files = 0;
  unsigned last = 0;
  for (const fs::path& record : Records()) {
    EXPECT_EQ(Run({"info", record.string()}).code, 0);
    const std::vector<unsigned> stamps = VideoStamps(Frames(record));
    if (stamps.empty()) continue;
    // However long the camera was away, a file repeats no more of the one before than at any other change.
    if (files++ > 0) {
      EXPECT_LE(static_cast<int>(last - stamps.front()), kLongestOverlapMs);
    }
    last = stamps.back();
  }
  EXPECT_GE(files, 2);
}

TEST_F(RecordTest, NoRoom) {
  fs::create_directories(m_root);
  const std::string mount = "mount -t tmpfs -o size=64m tmpfs " + m_root.string();
  if (Shell(mount).code != 0) GTEST_SKIP() << "mounting is not allowed here";
  const Result result = Run({"record", "--input", CAMERA_CLIP, "--duration", "2"});
  EXPECT_EQ(Shell("umount " + m_root.string()).code, 0);
  EXPECT_EQ(result.code, 1);
  EXPECT_EQ(result.err,
            "recordctl: no room in root " + m_root.string() + ": 64 MB free, more than 500 MB are needed\n");
}

// The duration runs out before the attempts do: that is no success either.
TEST_F(RecordTest, AMediumThatFillsUpMeanwhile) {
  for (const char* container : {"kmv", "mp4"}) {  // MP4: the multiplexer's failures are not the task's
    fs::create_directories(m_root);
    const std::string mount = "mount -t tmpfs -o size=520m tmpfs " + m_root.string();
    if (Shell(mount).code != 0) GTEST_SKIP() << "mounting is not allowed here";
    Process recording(m_directory, Ctl({"record", "--input", CAMERA_CLIP, "--loop", "--duration", "4",
                                        "--container", container}));
    AwaitRecord(30000);
    Shell("dd if=/dev/zero of=" + m_root.string() + "/fill bs=1M");
    const Result result = recording.Wait();
    EXPECT_EQ(Shell("umount " + m_root.string()).code, 0);
    EXPECT_EQ(result.code, 1) << container;
    EXPECT_THAT(result.err, HasSubstr("recordctl: writing failed: " + m_root.string() + "/mnt/mmc0/manual/"));
  }
}

// An address where nobody answers for a while: people see that something is under way.
TEST_F(RecordTest, OpeningTakesLong) {
  const record::SilentServer server;
  Process recording(m_directory, Ctl({"--progress", "kv", "record", "--input", server.Url()}));
  std::this_thread::sleep_for(std::chrono::milliseconds(2500));
  recording.Signal(SIGINT);
  const Result result = recording.Wait();
  EXPECT_EQ(result.code, 130);
  EXPECT_THAT(result.err, HasSubstr("phase=opening elapsed=1\n"));
}

}  // namespace
}  // namespace ctl
