// Exports of real recordings, judged by programs that are not ours.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <set>

#include "tests/ctl/ctl_run.h"

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::MatchesRegex;

namespace ctl {
namespace {

struct Packet {
  double seconds;
  bool key;
  std::string hash;
};

class ExportTest : public CtlTest {
 protected:
  Result Ctl(const std::string& container, Arguments arguments) const {
    arguments.insert(arguments.begin(), {RECORDCTL, "--root", Root(container), "--json"});
    return Process(m_directory, arguments).Wait();
  }
  // From the first record's begin for a minute, on its day.
  Arguments Span(const std::string& command, const std::string& container, int seconds, Arguments more) const {
    const std::string from = StartOf(RecordsOf(container).at(0));
    const std::string to =
        Shell("date -d '" + from + " " + std::to_string(seconds) + " sec' '+%Y-%m-%d %H:%M:%S' | tr -d '\\n'").out;
    more.insert(more.begin(), {command, "--from", from, "--to", to});
    return more;
  }

  // An export into `out` as a shell runs it.
  std::string Line(const std::string& out) const {
    std::string line = RECORDCTL " --root " + Root("kmv");
    for (const std::string& word : Span("export", "kmv", 60, {out})) line += " '" + word + "'";
    return line;
  }

  std::vector<Packet> Packets(const std::string& file, const std::string& stream) const {
    const Result probe =
        Shell("ffprobe -v error -select_streams " + stream +
              " -show_entries packet=pts_time,flags,data_hash -show_data_hash CRC32 -of json " + file);
    EXPECT_EQ(probe.code, 0) << probe.err;
    EXPECT_EQ(probe.err, "");
    std::vector<Packet> packets;
    const Json told = Json::parse(probe.out);
    for (const Json& packet : told["packets"])
      packets.push_back({std::atof(packet["pts_time"].get<std::string>().c_str()),
                         packet["flags"].get<std::string>()[0] == 'K', packet["data_hash"]});
    return packets;
  }

  static void ExpectEven(const std::vector<Packet>& packets, double step, double tolerance) {
    for (std::size_t at = 1; at < packets.size(); ++at)
      EXPECT_NEAR(packets[at].seconds - packets[at - 1].seconds, step, tolerance) << at;
  }
  static void ExpectEachOnce(const std::vector<Packet>& packets) {
    std::set<std::string> hashes;
    for (const Packet& packet : packets) hashes.insert(packet.hash);
    EXPECT_EQ(hashes.size(), packets.size());
  }

  void ExpectPlays(const std::string& file) const {
    const Result decoded = Shell("ffmpeg -nostdin -v warning -xerror -i " + file + " -f null -");
    EXPECT_EQ(decoded.code, 0);
    EXPECT_EQ(decoded.err, "");
    const Result played =
        Shell("gst-launch-1.0 -q filesrc location=" + file +
              " ! qtdemux name=d d.video_0 ! queue ! h264parse ! avdec_h264 ! fakesink d.audio_0 ! queue ! "
              "mulawdec ! fakesink");
    EXPECT_EQ(played.code, 0) << played.err;
  }
};

TEST_F(ExportTest, SpansAcrossFileChanges) {
  const std::vector<std::string> containers = {"kmv", "avi", "mp4"};
  RecordInto(containers, 5);
  for (const std::string& container : containers) {
    SCOPED_TRACE(container);
    const std::string out = Out(container + ".mp4");
    const Result result = Ctl(container, Span("export", container, 60, {out}));
    ASSERT_EQ(result.code, 0) << result.err;
    EXPECT_FALSE(fs::exists(out + ".part"));
    const std::vector<Packet> video = Packets(out, "v");
    const std::vector<Packet> audio = Packets(out, "a");
    ASSERT_GT(video.size(), 100u);
    EXPECT_TRUE(video[0].key);
    const double slack = container == "kmv" ? 0.03 : 0.06;
    ExpectEven(video, 0.04, slack);
    ExpectEachOnce(video);
    ASSERT_FALSE(audio.empty());
    EXPECT_NEAR(static_cast<double>(audio.size()), static_cast<double>(video.size()), 3);
    // In step at both ends, within one frame of sound.
    EXPECT_NEAR(audio.front().seconds, video.front().seconds, 0.041);
    EXPECT_NEAR(audio.back().seconds, video.back().seconds, 0.081);
    ExpectPlays(out);

    const Json told = result.Objects().at(0);
    EXPECT_EQ(told["video_frames"], video.size());
    EXPECT_EQ(told["audio_frames"], audio.size());
    EXPECT_EQ(told["complete"], true);
    EXPECT_EQ(told["gaps"].size(), 1u) << told.dump();  // behind the recording
    EXPECT_NEAR(told["span_ms"].get<double>() / 1000, video.back().seconds, 0.002);

    const std::string lapse = Out(container + "-lapse.mp4");
    EXPECT_EQ(Ctl(container, Span("timelapse", container, 60, {"--seconds", "10", lapse})).code, 0);
    const std::vector<Packet> pictures = Packets(lapse, "v");
    ASSERT_GE(pictures.size(), 3u);
    EXPECT_TRUE(std::all_of(pictures.begin(), pictures.end(), [](const Packet& packet) { return packet.key; }));
    ExpectEven(pictures, 0.04, 0.0001);
  }
}

// Nothing is where nothing was asked for, and what is there stays.
TEST_F(ExportTest, WhatCannotBeDone) {
  RecordInto({"kmv"}, 3);
  const auto run = [&](const std::string& out, Arguments more = {}) {
    more.push_back(out);
    return Ctl("kmv", Span("export", "kmv", 60, more));
  };
  WriteFile(Out("old.mp4"), "old");
  EXPECT_EQ(run(Out("old.mp4")).err,
            "recordctl: " + Out("old.mp4") + ": is there already (--overwrite replaces it)\n");
  EXPECT_EQ(ReadFile(Out("old.mp4")), "old");
  EXPECT_EQ(run(Out("old.mp4"), {"--overwrite"}).code, 0);
  EXPECT_GT(fs::file_size(Out("old.mp4")), 100000u);
  EXPECT_EQ(run(Out("none/x.mp4")).err,
            "recordctl: " + Out("none/x.mp4") + ": cannot be written: No such file or directory\n");
  EXPECT_EQ(run(m_directory.string() + ".mp4/").code, 2);
  WriteFile(Out("busy.mp4.part"), "theirs");
  const int theirs = open(Out("busy.mp4.part").c_str(), O_RDONLY | O_CLOEXEC);
  ASSERT_EQ(flock(theirs, LOCK_EX), 0);
  EXPECT_EQ(run(Out("busy.mp4")).err, "recordctl: " + Out("busy.mp4") + ": is being made by another run\n");
  EXPECT_EQ(ReadFile(Out("busy.mp4.part")), "theirs");
  close(theirs);
  EXPECT_EQ(run(Out("busy.mp4")).code, 0);

  // A file that must not grow beyond so many KiB.
  for (const int limit : {1, 20, 64, 150}) {
    const std::string out = Out("limited.mp4");
    const Result cut = Shell("trap '' XFSZ; ulimit -f " + std::to_string(limit) + "; " + Line(out));
    EXPECT_EQ(cut.code, 1);
    EXPECT_THAT(cut.err, HasSubstr("writing failed: File too large"));
    EXPECT_FALSE(fs::exists(out));
  }
  EXPECT_EQ(Ctl("kmv", {"export", "--from", "2001-01-01 00:00", "--to", "2001-01-02 00:00", Out("no.mp4")}).err,
            "recordctl: no recordings between 2001-01-01T00:00:00.000+00:00 and 2001-01-02T00:00:00.000+00:00\n");
  EXPECT_FALSE(fs::exists(Out("no.mp4.part")));
}

// One picture without its start code costs its group. Parts without recordings are told as one gap.
TEST_F(ExportTest, DamageAndGaps) {
  RecordInto({"kmv"}, 3);
  const Json whole = Ctl("kmv", Span("export", "kmv", 60, {Out("whole.mp4")})).Objects().at(0);
  const fs::path first = RecordsOf("kmv").at(0);
  const std::string pictures = Raw(first, "video");
  std::size_t offset = 0;
  int deltas = 0;
  for (const Json& frame : Frames(first)) {
    if (frame["media"] != "video") continue;
    if (frame["key"] == false && ++deltas == 10) break;
    offset += frame["bytes"].get<std::size_t>();
  }
  std::string bytes = ReadFile(first);
  const std::size_t at = bytes.find(pictures.substr(offset, 40));
  ASSERT_NE(at, std::string::npos);
  WriteFile(first, bytes.replace(at, 4, "oops"));

  const Result result = Ctl("kmv", Span("export", "kmv", 1500, {"--split", Out("x.mp4")}));
  EXPECT_EQ(result.code, 0) << result.err;
  ASSERT_EQ(result.Objects().size(), 1u);
  const Json told = result.Objects()[0];
  EXPECT_EQ(told["path"], Out("x-01.mp4"));
  EXPECT_EQ(told["damaged_frames"], 1);
  EXPECT_GT(told["leaning_frames"], 5);
  EXPECT_EQ(told["video_frames"].get<int>() + 1 + told["leaning_frames"].get<int>(), whole["video_frames"]);
  EXPECT_EQ(Packets(Out("x-01.mp4"), "v").size(), told["video_frames"].get<std::size_t>());
  ExpectPlays(Out("x-01.mp4"));
  const Json lapse =
      Ctl("kmv", Span("timelapse", "kmv", 1500, {"--seconds", "10", Out("lapse.mp4")})).Objects().at(0);
  for (const Json& each : {told, lapse}) {
    ASSERT_EQ(each["gaps"].size(), 1u) << each.dump();
    EXPECT_NEAR(each["gaps"][0]["ms"].get<double>(), 1497000, 1500);
  }
}

TEST_F(ExportTest, AFullDisk) {
  if (Shell("unshare -m true").code != 0) GTEST_SKIP() << "a file system of its own needs root";
  RecordInto({"kmv"}, 3);
  const std::string disk = Out("disk");
  fs::create_directory(disk);
  const Result full = Shell("unshare -m bash -c \"mount -t tmpfs -o size=150k none " + disk + " && " +
                            Line(disk + "/x.mp4") + "; code=\\$?; ls " + disk + "; ffmpeg -nostdin -v error -i " +
                            disk + "/x.mp4.part -f null -; exit \\$code\"");
  EXPECT_EQ(full.code, 1);
  EXPECT_THAT(full.err,
              MatchesRegex("recordctl: the disk is full; what was written, up to .*, lies in .*x.mp4.part\n"));
  EXPECT_THAT(full.out, HasSubstr("\nx.mp4.part\n"));

  // There is room for the file, though not for what is reserved ahead of it: that is given back.
  const std::string image = Out("image");
  const std::string mount = "mount -o loop " + image + " " + disk;
  const Result made = Shell("truncate -s 3M " + image + " && mkfs.ext4 -qF " + image + " && unshare -m " + mount);
  if (made.code != 0) GTEST_SKIP() << made.err;
  const Result nearly =
      Shell("unshare -m bash -c \"" + mount + " && " + Line(disk + "/x.mp4") + " && stat -c '%s %b' " + disk +
            "/x.mp4 | { read size blocks; exit \\$((blocks * 512 - size > 65536)); }\"");
  EXPECT_EQ(nearly.code, 0) << nearly.err;
}

}  // namespace
}  // namespace ctl
