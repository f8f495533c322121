// recordctl play: what arrives of a recording, what it writes, its keys.
#include <gmock/gmock.h>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <set>

#include "storage/record_info.h"
#include "tests/ctl/ctl_run.h"

namespace fs = std::filesystem;
using testing::HasSubstr;

namespace ctl {
namespace {

class PlayTest : public CtlTest {
 protected:
  // Its name, had it begun so many seconds later.
  static std::string NameAfter(const fs::path& record, int seconds) {
    const std::string name = record.filename().string();
    const int second = std::stoi(name.substr(0, 2)) * 3600 + std::stoi(name.substr(2, 2)) * 60 +
                       std::stoi(name.substr(4, 2)) + seconds;
    char time[32];
    std::snprintf(time, sizeof time, "%02d%02d%02d", second / 3600, second / 60 % 60, second % 60);
    return time + name.substr(6);
  }

  // The side file of a copy of the record that begins so many seconds later.
  static void CopySideFile(const fs::path& record, const fs::path& copy, unsigned seconds) {
    RecordInfoStruct info = {};
    ASSERT_GT(record::ReadRecordInfo(record.string() + ".info", info), 0);
    info.startSeconds += seconds;
    info.endSeconds += seconds;
    ASSERT_GT(record::WriteRecordInfo(copy.string() + ".info", info), 0);
  }

  std::unique_ptr<Process> Play(const std::string& container, Arguments arguments) const {
    arguments.insert(arguments.begin(), {RECORDCTL, "--root", Root(container), "--json", "play"});
    return std::make_unique<Process>(m_directory, arguments);
  }

  // Time stamps of a medium, each once: neighbouring files share frames.
  std::set<unsigned> Stamps(const std::vector<fs::path>& records, const std::string& medium, bool keysOnly) const {
    std::set<unsigned> stamps;
    for (const fs::path& record : records) {
      for (const Json& frame : Frames(record)) {
        if (frame["media"] == medium && (!keysOnly || frame["key"])) stamps.insert(frame["ts_ms"].get<unsigned>());
      }
    }
    return stamps;
  }

  std::vector<std::string> Packets(const std::string& file, const std::string& stream) const {
    const Result probe =
        Shell("ffprobe -v error -select_streams " + stream + " -show_entries packet=pts_time -of csv=p=0 " + file);
    EXPECT_EQ(probe.code, 0);
    EXPECT_EQ(probe.err, "");
    std::vector<std::string> times;
    std::istringstream lines(probe.out);
    for (std::string line; std::getline(lines, line);) {
      if (!line.empty()) times.push_back(line);
    }
    return times;
  }

  // On a terminal of its own; each key is pressed once the one before has shown its effect.
  void ExpectKeys(const std::string& start) const {
    const Result pressed = Shell(
        "cd " + m_directory.string() + "; mkfifo keys; script -qec \"" RECORDCTL " --root " + Root("kmv") +
        " --progress kv --json play --at '" + start +
        "' --speed -16\" /dev/null < keys > shown & exec 3> keys; "
        "after() { for try in {1..100}; do grep -qE \"$1\" shown && break; sleep 0.1; done; printf \"$2\" >&3; }; "
        "after 'speed=-16' +; after 'speed=-15' ' '; after ' frames=0 ' '+ '; "
        "after 'speed=-14 frames=[1-9]' '\\033[C+'; after 'speed=-13 frames=[1-9]' q; "
        "wait $!");
    const std::string shown = ReadFile(Out("shown"));
    EXPECT_EQ(pressed.code, 0) << shown;
    EXPECT_THAT(shown, testing::ContainsRegex("speed=-15 frames=0 .*kmv"));
    EXPECT_THAT(shown, HasSubstr("speed=-13"));
    EXPECT_THAT(shown, HasSubstr(" file=" + Root("kmv") + "/mnt/"));
    std::vector<std::string> times;  // nothing lies 10 s on: that key leads nowhere
    for (std::size_t at = 0; (at = shown.find("time=", at)) != std::string::npos; ++at)
      times.push_back(shown.substr(at, 28));
    EXPECT_TRUE(std::is_sorted(times.begin(), times.end())) << shown;
    const std::size_t summary = shown.find("{\"");
    ASSERT_NE(summary, std::string::npos) << shown;
    EXPECT_LT(Json::parse(shown.substr(summary))["video_frames"], 40);
  }

  // A day between whose files lies one that cannot be played, and of which a later one has another width.
  void ExpectDamageIsPassedOver(const std::vector<fs::path>& kmv, unsigned keyFrames) const {
    fs::copy(Root("kmv"), Root("broken"), fs::copy_options::recursive);
    const fs::path day = Root("broken") / fs::relative(kmv[0].parent_path(), Root("kmv"));
    const std::string damaged = (day / NameAfter(kmv[0], 1)).string();
    WriteFile(damaged, "no recording");
    CopySideFile(kmv[0], damaged, 1);
    const std::string told = "recordctl: " + damaged + ": cannot be played\n";
    const Result played = Play("broken", {"--at", StartOf(kmv[0]), "--speed", "16"})->Wait();
    EXPECT_EQ(played.code, 1);
    EXPECT_EQ(played.err, told);
    EXPECT_GE(played.Objects().at(0)["video_frames"], keyFrames);

    std::string last = ReadFile(day / kmv.back().filename());
    last.replace(last.size() - 416 + 56, 2, std::string("\x40\x01", 2));
    WriteFile(day / kmv.back().filename(), last);
    const Result written =
        Play("broken", {"--at", StartOf(kmv[0]), "--speed", "3", "--output", Out("broken.mkv")})->Wait();
    EXPECT_EQ(written.code, 1);
    EXPECT_THAT(written.err, HasSubstr(told));
    EXPECT_THAT(written.err, HasSubstr("/broken.mkv: the recording changes from H.264 640x360 to H.264 320x360"));
  }

  // The second file is named as late as a loss would make it.
  std::unique_ptr<Process> PlayNamedLate(const std::vector<fs::path>& avi) const {
    const fs::path day = Root("late") / fs::relative(avi[0].parent_path(), Root("avi"));
    fs::create_directories(day);
    const auto seconds = static_cast<int>(Stamps({avi[0]}, "video", false).size()) / 25;
    for (const char* extension : {"", ".info"}) {
      fs::copy(avi[0].string() + extension, day);
      fs::copy(avi[1].string() + extension, day / (NameAfter(avi[0], seconds) + extension));
    }
    return Play("late", {"--at", StartOf(avi[0]), "--speed", "3"});
  }

  // All that the second file holds came before.
  std::unique_ptr<Process> PlayTwice(const fs::path& record) const {
    const fs::path day = Root("twice") / fs::relative(record.parent_path(), Root("kmv"));
    fs::create_directories(day);
    for (const char* extension : {"", ".info"}) fs::copy(record.string() + extension, day);
    fs::copy(record, day / NameAfter(record, 1));
    CopySideFile(record, day / NameAfter(record, 1), 1);
    return Play("twice", {"--at", StartOf(record), "--speed", "3"});
  }

  // A step back from the first file of all, at midnight, leads to its begin.
  std::unique_ptr<Process> StepBackAtMidnight(const fs::path& record) const {
    const fs::path day = Root("night") / fs::relative(record.parent_path(), Root("kmv"));
    fs::create_directories(day);
    for (const char* extension : {"", ".info"})
      fs::copy(record.string() + extension, day / (std::string("000000-av-1.kmv") + extension));
    return std::make_unique<Process>(
        m_directory,
        Arguments{
            "bash", "-c",
            "cd " + m_directory.string() + "; mkfifo back; script -qec \"" RECORDCTL " --root " + Root("night") +
                " --progress kv play --at '" + StartOf(record).substr(0, 10) +
                " 00:00:00' --speed -16\" /dev/null < back > night & exec 3> back; "
                "after() { for try in {1..100}; do [ $(grep -c speed=-16 night) -ge $1 ] && break; sleep 0.1; "
                "done; printf \"$2\" >&3; }; "
                "after 1 '\\033[D'; after 3 q; wait $!"});
  }

  static Json Summary(Process& process) {
    const Result played = process.Wait();
    EXPECT_EQ(played.code, 0) << played.err;
    EXPECT_EQ(played.err, "");
    const std::vector<Json> told = played.Objects();
    return told.size() == 1 ? told[0] : Json::object();
  }
};

TEST_F(PlayTest, ADayAndFiles) {
  RecordInto({"kmv", "avi", "mp4"}, 5);
  const std::vector<fs::path> kmv = RecordsOf("kmv");
  const std::string avi = RecordsOf("avi").at(0).string();
  const std::string mp4 = RecordsOf("mp4").at(0).string();
  const std::string start = StartOf(kmv[0]);

  // All at once: most of the time they wait.
  const auto keys = Play("kmv", {"--at", start, "--speed", "16"});
  const auto all = Play("kmv", {"--at", start, "--speed", "3", "--output", Out("day.ts")});
  const auto oneOfDay = Play("kmv", {"--at", start, "--one-file", "--speed", "3"});
  const auto aviFile = Play("avi", {avi});
  const auto mp4File = Play("mp4", {mp4, "--duration", "1"});
  const std::string line = "$CTL/kmv play " + kmv[0].string() + " --output - > " + Out("file.mkv");
  Process piped(m_directory, {"bash", "-c", line});
  const std::string unreadLine = "mkfifo " + Out("unread") + "; exec 3<>" + Out("unread") +
                                 "; timeout --preserve-status -k 8 2 $CTL/kmv play " + kmv[0].string() +
                                 " --speed 3 --output - > " + Out("unread");
  Process unread(m_directory, {"bash", "-c", unreadLine});
  const auto late = PlayNamedLate(RecordsOf("avi"));
  const auto twice = PlayTwice(kmv[0]);
  const auto night = StepBackAtMidnight(kmv[0]);

  const std::set<unsigned> pictures = Stamps(kmv, "video", false);
  const Json shown = Summary(*all);
  EXPECT_EQ(shown["video_frames"], pictures.size());
  EXPECT_EQ(shown["repeated"], 0);
  EXPECT_EQ(shown["missing"], 0);
  EXPECT_EQ(shown["gaps"], 0);
  EXPECT_EQ(shown["audio_frames"], 0);
  EXPECT_EQ(Packets(Out("day.ts"), "v").size(), pictures.size());
  EXPECT_THAT(
      Shell("ffprobe -v error -show_entries stream=codec_name,width,height -of csv=p=0 " + Out("day.ts")).out,
      HasSubstr("h264,640,360"));
  const Result decoded = Shell("ffmpeg -nostdin -v warning -xerror -i " + Out("day.ts") +
                               " -fps_mode passthrough -enc_time_base -1 -f null -");
  EXPECT_EQ(decoded.err, "");

  const Json fast = Summary(*keys);
  EXPECT_EQ(fast["video_frames"], fast["key_frames"]);
  EXPECT_LE(fast["video_frames"], Stamps(kmv, "video", true).size());
  EXPECT_GE(fast["video_frames"], 3);
  EXPECT_EQ(fast["repeated"], 0);

  const std::size_t inFirst = Stamps({kmv[0]}, "video", false).size();
  EXPECT_EQ(Summary(*oneOfDay)["video_frames"], inFirst);
  EXPECT_EQ(Summary(*twice)["video_frames"], inFirst);

  const Result out = piped.Wait();
  EXPECT_EQ(out.code, 0) << out.err;
  EXPECT_EQ(out.out, "");
  EXPECT_EQ(Packets(Out("file.mkv"), "v").size(), inFirst);
  EXPECT_EQ(Packets(Out("file.mkv"), "a").size(), Stamps({kmv[0]}, "audio", false).size());

  const Json ofAvi = Summary(*aviFile);
  EXPECT_EQ(ofAvi["video_frames"], Stamps({avi}, "video", false).size());
  EXPECT_GT(ofAvi["audio_frames"], 30);
  EXPECT_EQ(ofAvi["missing"], 0);
  EXPECT_EQ(Summary(*mp4File)["video_frames"], 25);

  EXPECT_EQ(unread.Wait().code, 130) << "the signal did not end it";
  EXPECT_EQ(night->Wait().code, 0);
  const std::string shownAtNight = ReadFile(Out("night"));
  EXPECT_THAT(shownAtNight, testing::ContainsRegex("(speed=-16[^$]*){3}")) << shownAtNight;
  const Json ofLate = Summary(*late);
  EXPECT_EQ(ofLate["repeated"], 0);
  EXPECT_EQ(ofLate["missing"], 0);
  EXPECT_EQ(ofLate["gaps"], 0);

  const auto expectError = [&](Arguments arguments, int code, const std::string& message) {
    const Result result = Play("kmv", std::move(arguments))->Wait();
    EXPECT_EQ(result.code, code) << message;
    EXPECT_EQ(result.err, "recordctl: " + message + "\n");
  };
  expectError({"--at", "2001-01-01 00:00:00"}, 1, "nothing was recorded at 2001-01-01 00:00:00 or later that day");
  expectError({"--at", "yesterday"}, 2, "--at \"yesterday\" is not a time like \"2026-05-04 08:15:00\"");
  expectError({kmv[0].string(), "--output", Out("none/x.ts")}, 1,
              Out("none/x.ts") + ": cannot be opened for writing");
  expectError({kmv[0].string(), "--speed", "16", "--output", "/dev/full"}, 1,
              "/dev/full: writing failed: No space left on device");
  expectError({Out("none.kmv")}, 1, Out("none.kmv") + ": cannot be read");
  expectError({kmv[0].string(), "--at", start}, 2, "either --at or FILE is needed");

  ExpectDamageIsPassedOver(kmv, fast["video_frames"]);
  ExpectKeys(start);
}

}  // namespace
}  // namespace ctl
