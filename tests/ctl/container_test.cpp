// The three containers at the command line: the same frames in each of them, and from each into each.
#include <gmock/gmock.h>

#include <algorithm>
#include <csignal>

#include "tests/ctl/ctl_run.h"

namespace fs = std::filesystem;
using testing::HasSubstr;

namespace ctl {
namespace {

class ContainerTest : public CtlTest {
 protected:
  fs::path Record(const std::string& input, const std::string& container) {
    const Result recorded = Run({"record", "--input", input, "--container", container, "--kind", Kind(container)});
    EXPECT_EQ(recorded.code, 0) << recorded.err;
    for (const fs::path& path : Records()) {
      if (path.extension() == "." + container) return path;
    }
    return {};
  }
  // A directory for each container.
  static std::string Kind(const std::string& container) {
    return container == "kmv" ? "manual" : container == "avi" ? "motion" : "alarm";
  }
  // Clip of the codecs that ffmpeg is told.
  std::string Encoded(const std::string& name, const std::string& codecs) const {
    const std::string clip = (m_directory / name).string();
    const Result made = Shell(
        "ffmpeg -nostdin -v error -f lavfi -i testsrc=s=64x64:r=25:d=1 -f lavfi "
        "-i 'sine=f=300:r=8000:d=1' -pix_fmt yuv420p " +
        codecs + " " + clip);
    EXPECT_EQ(made.code, 0) << made.err;
    return clip;
  }
  Result Convert(const fs::path& from, const fs::path& to, Arguments options = {}) const {
    Arguments arguments = {"--json", "convert", from.string(), to.string()};
    arguments.insert(arguments.end(), options.begin(), options.end());
    return Run(arguments);
  }
  std::string Sound(const fs::path& record) const {
    const Json info = Run({"--json", "info", record.string()}).Objects().at(0);
    return info.contains("audio") ? info["audio"]["codec"].get<std::string>() : "none";
  }
};

// "media key bytes" of each frame, in order.
std::vector<std::string> Shapes(const std::vector<Json>& frames) {
  std::vector<std::string> shapes;
  for (const Json& frame : frames)
    shapes.push_back(frame["media"].get<std::string>() + (frame["key"] ? " key " : " ") + frame["bytes"].dump());
  return shapes;
}

std::vector<long> StampsFromZero(const std::vector<Json>& frames) {
  std::vector<long> stamps;
  for (const Json& frame : frames) stamps.push_back(frame["ts_ms"].get<long>() - frames[0]["ts_ms"].get<long>());
  return stamps;
}

TEST_F(ContainerTest, TheSameFramesInEachAndFromEachIntoEach) {
  const fs::path kmv = Record(Clip(2), "kmv");
  const std::string video = Raw(kmv, "video");
  const std::string audio = Raw(kmv, "audio");
  ASSERT_GT(video.size(), 50000u);
  for (const char* container : {"avi", "mp4"}) {
    const fs::path record = Record((m_directory / "clip.mkv").string(), container);
    // An AVI file has the parameter sets in front of its first picture once more.
    const std::string read = Raw(record, "video");
    EXPECT_TRUE(read.size() >= video.size() && read.substr(read.size() - video.size()) == video) << container;
    EXPECT_LT(read.size() - video.size(), 100u);
    EXPECT_TRUE(Raw(record, "audio") == audio) << container;
    const Result info = Run({"--json", "info", record.string()});
    EXPECT_EQ(info.code, 0) << info.out << info.err;
    EXPECT_EQ(info.Objects().at(0)["container"], container);
  }
  const std::vector<Json> listed = Run({"--json", "list"}).Objects();
  ASSERT_EQ(listed.size(), 3u);
  for (const Json& entry : listed) EXPECT_EQ(entry["state"], "complete") << entry["path"];

  // Round trips, each begun with the file that the one before made.
  const std::vector<Json> frames = Frames(kmv);
  const Json start = Run({"--json", "info", kmv.string()}).Objects().at(0)["side_file"]["start"];
  fs::path from = kmv;
  for (const char* name : {"1.mp4", "2.mp4", "3.kmv", "4.avi", "5.avi", "6.kmv", "7.avi", "8.mp4"}) {
    const fs::path to = m_directory / name;
    const Result converted = Convert(from, to);
    ASSERT_EQ(converted.code, 0) << converted.err;
    EXPECT_EQ(Run({"info", to.string()}).code, 0);
    EXPECT_EQ(Shapes(Frames(to)), Shapes(frames)) << name;
    EXPECT_TRUE(Raw(to, "video") == video && Raw(to, "audio") == audio) << name;
    if (to.extension() != ".avi") {
      EXPECT_EQ(StampsFromZero(Frames(to)), StampsFromZero(frames)) << name;
    }
    if (from == kmv) {
      EXPECT_EQ(converted.Objects().at(0)["start"], start);
    }
    from = to;
  }
  // A place in the tree gets its side file, too.
  const fs::path placed = kmv.parent_path() / "010203-av-1.mp4";
  EXPECT_EQ(Convert(kmv, placed).code, 0);
  EXPECT_EQ(Run({"info", placed.string()}).code, 0);
  EXPECT_EQ(Run({"--json", "info", placed.string()}).Objects().at(0)["side_file"]["start"], start);
  EXPECT_THAT(Convert(kmv, placed).err, HasSubstr("010203-av-1.mp4: is there already (--overwrite replaces it)"));
  EXPECT_EQ(Convert(kmv, placed, {"--overwrite"}).code, 0);
  EXPECT_THAT(Convert(kmv, kmv, {"--overwrite"}).err, HasSubstr("is the file that is to be converted"));
  for (const auto& entry : fs::directory_iterator(m_directory))
    EXPECT_NE(entry.path().filename().string().substr(0, 8), ".convert") << "something is left";
}

TEST_F(ContainerTest, WhatDoesNotFitIsToldInALine) {
  const std::string mpeg4 = Encoded("mpeg4.mkv", "-c:v mpeg4 -g 10 -bf 0 -an");
  const std::string refused = "recordctl: MPEG-4 video does not go into MP4 files (kmv and avi take it)\n";
  EXPECT_EQ(Run({"record", "--input", mpeg4, "--container", "mp4"}).err, refused);
  const fs::path avi = Record(mpeg4, "avi");
  EXPECT_EQ(Convert(avi, m_directory / "a.mp4").err, refused);
  EXPECT_FALSE(fs::exists(m_directory / "a.mp4"));
  EXPECT_EQ(Convert(avi, m_directory / "a.kmv").code, 0);
  EXPECT_TRUE(Raw(m_directory / "a.kmv", "video") == Raw(avi, "video"));

  const std::string pcm = Encoded("pcm.mkv", "-c:v libx264 -g 10 -bf 0 -c:a pcm_s16le");
  const Result silent = Run({"record", "--input", pcm, "--container", "mp4"});
  EXPECT_EQ(silent.code, 0);
  EXPECT_THAT(silent.err, HasSubstr("PCM sound does not go into MP4 files: recording video only\n"));
  EXPECT_THAT(silent.out, HasSubstr("-vv-1.mp4  25 video"));
  const fs::path kmv = Record(pcm, "kmv");
  EXPECT_EQ(Convert(kmv, m_directory / "pcm.mp4").Objects().at(0)["audio_frames"], 0);
  EXPECT_EQ(Convert(kmv, m_directory / "pcm.avi").code, 0);
  EXPECT_THAT(Convert(m_directory / "pcm.avi", m_directory / "pcm.kmv").err, HasSubstr("taken for PCM"));
  EXPECT_EQ(Sound(m_directory / "pcm.kmv"), "PCM");
}

// An AVI file does not tell the laws apart; the sound itself does.
TEST_F(ContainerTest, EachSoundIsKnownAgain) {
  struct Case {
    const char* encoder;
    const char* kmv;
    const char* mp4;
  };
  for (const Case& c : {Case{"pcm_alaw", "G.711A", "PCMA"}, Case{"pcm_mulaw", "G.711", "PCMU"},
                        Case{"aac -b:a 32k", "AAC", "MPEG4-GENERIC"}}) {
    const std::string clip = Encoded("sound.mkv", std::string("-y -c:v libx264 -g 10 -bf 0 -c:a ") + c.encoder);
    ASSERT_EQ(Run({"record", "--input", clip, "--container", "avi"}).code, 0);
    const fs::path avi = Records().back();
    ASSERT_EQ(Convert(avi, m_directory / "s.kmv", {"--overwrite"}).code, 0);
    ASSERT_EQ(Convert(avi, m_directory / "s.mp4", {"--overwrite"}).code, 0);
    EXPECT_EQ(Sound(m_directory / "s.kmv"), c.kmv);
    EXPECT_EQ(Sound(m_directory / "s.mp4"), c.mp4);
    fs::remove(avi);
  }
}

// Shown in another order than decoded: the times of decoding go into the file, evenly, beside their sound.
TEST_F(ContainerTest, PicturesThatAreReordered) {
  const std::string clip = Encoded("b.mp4", "-c:v libx264 -bf 3 -g 10 -c:a aac");
  const fs::path to = m_directory / "to.kmv";
  ASSERT_EQ(Convert(clip, to).code, 0);
  EXPECT_EQ(Shapes(Frames(to)), Shapes(Frames(clip)));
  std::vector<Json> pictures = Frames(to);
  pictures.erase(
      std::remove_if(pictures.begin(), pictures.end(), [](const Json& f) { return f["media"] != "video"; }),
      pictures.end());
  ASSERT_EQ(pictures.size(), 25u);
  for (std::size_t n = 0; n < pictures.size(); ++n)
    EXPECT_EQ(StampsFromZero(pictures)[n], 40 * static_cast<long>(n));
}

TEST_F(ContainerTest, AnMp4FileThatLostItsEnd) {
  Process recording(m_directory, Ctl({"record", "--input", CAMERA_CLIP, "--loop", "--container", "mp4"}));
  const fs::path record = AwaitRecord(100000);
  EXPECT_THAT(Convert(record, m_directory / "x.kmv").err, HasSubstr("is being recorded"));
  recording.Signal(SIGKILL);
  recording.Wait();
  const std::vector<Json> frames = Frames(record);
  ASSERT_GT(frames.size(), 20u);
  EXPECT_EQ(Run({"--json", "list"}).Objects().at(0)["state"], "interrupted");
  const Result repaired = Run({"repair", record.string()});
  EXPECT_EQ(repaired.code, 0) << repaired.err;
  EXPECT_THAT(repaired.out, HasSubstr(": its fragments survive: "));
  EXPECT_THAT(repaired.out, HasSubstr(": side file written\n"));
  EXPECT_FALSE(fs::exists(LockFile(record)));
  ASSERT_EQ(Convert(record, m_directory / "whole.mp4").code, 0);
  EXPECT_EQ(Frames(m_directory / "whole.mp4"), frames);
  EXPECT_EQ(Run({"info", (m_directory / "whole.mp4").string()}).code, 0);
  // Finished, then cut off, within the index or below it: its fragments are there to be uncovered.
  const std::string whole = ReadFile(m_directory / "whole.mp4");
  const fs::path cut = m_directory / "cut.mp4";
  for (const std::size_t lost : {std::size_t{100}, whole.size() / 3}) {
    WriteFile(cut, whole.substr(0, whole.size() - lost));
    EXPECT_THAT(Run({"info", cut.string()}).err, HasSubstr("whole fragments: recordctl repair uncovers them"));
    EXPECT_THAT(Run({"repair", "--dry-run", cut.string()}).out, HasSubstr(" fragments would be uncovered"));
    EXPECT_EQ(ReadFile(cut), whole.substr(0, whole.size() - lost));
    const Result uncovered = Run({"--json", "repair", cut.string()});
    EXPECT_EQ(uncovered.code, 0) << uncovered.err;
    EXPECT_EQ(uncovered.Objects().at(0)["end_written"], true);
    const std::vector<Json> kept = Frames(cut);
    ASSERT_GE(kept.size(), lost == 100 ? frames.size() : 20u);
    EXPECT_EQ(kept, std::vector<Json>(frames.begin(), frames.begin() + static_cast<std::ptrdiff_t>(kept.size())));
  }
  // Broken off within its first box that counts: told, not crashed.
  WriteFile(m_directory / "torn.mp4", ReadFile(record).substr(0, 100));
  EXPECT_THAT(Run({"info", (m_directory / "torn.mp4").string()}).err, HasSubstr("cannot be read as MP4"));
}

}  // namespace
}  // namespace ctl
