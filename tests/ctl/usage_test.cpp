// Wrong input gets one clear line and the right exit code.
#include <gmock/gmock.h>

#include <algorithm>

#include "tests/ctl/ctl_run.h"

using testing::HasSubstr;
using testing::StartsWith;

namespace ctl {
namespace {

struct UsageCase {
  Arguments arguments;
  int code;
  std::string message;
};

class UsageTest : public CtlTest {
 protected:
  void Expect(const std::vector<UsageCase>& cases) const {
    for (const UsageCase& one : cases) {
      const Result result = Run(one.arguments);
      EXPECT_EQ(result.code, one.code) << one.message;
      EXPECT_THAT(result.err, StartsWith("recordctl: " + one.message));
      EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << result.err;
      EXPECT_EQ(result.out, "");
    }
  }
};

TEST_F(UsageTest, WrongUsage) {
  const std::string clip = CAMERA_CLIP;
  Expect({
      {{}, 2, "a command is missing"},
      {{"play"}, 2, "either --at or FILE is needed"},
      {{"sing"}, 2, "The following argument was not expected: sing"},
      {{"record"}, 2, "--input is required"},
      {{"record", "--input", clip, "--kind", "party"}, 2, "there is no kind 'party'"},
      {{"record", "--input", clip, "--container", "ogg"}, 2, "there is no container 'ogg' (kmv, avi, mp4)"},
      {{"convert", "in.kmv", "out.ogg"}, 2, "out.ogg: files are named .kmv, .avi or .mp4"},
      {{"record", "--input", clip, "--stream", "sub"}, 2, "--stream sub needs --sub"},
      {{"record", "--input", clip, "--duration", "0"}, 2, "--duration: "},
      {{"record", "--input", clip, "--pre", "11"}, 2, "--pre: "},
      {{"list", "--date", "2023-02-29"}, 2, "'2023-02-29' is not a day"},
      {{"list", "--date", "today"}, 2, "'today' is not a day"},
      {{"minutes", "--date", "2024-13-01"}, 2, "'2024-13-01' is not a day"},
      {{"find", "--at", "2024-01-31 24:00:00"}, 2, "'2024-01-31 24:00:00' is not a moment"},
      {{"find", "--at", "2024-01-31 08:00:00", "--stream", "1", "--sensor", "1"}, 2, "--stream excludes --sensor"},
      {{"prune"}, 2, "Exactly 1 option from [--keep-days,--free,--keep-newest]"},
      {{"prune", "--keep-days", "1", "--free", "10"}, 2, "Exactly 1 option from "},
      {{"prune", "--keep-days", "0"}, 2, "--keep-days: "},
      {{"record", "--input", clip, "--min-free", "500"}, 2, "--min-free: "},
      {{"frames", "x.kmv", "--raw", "smell"}, 2, "--raw: "},
      {{"frames", "x.kmv", "--raw", "video", "--json"}, 2, "--raw writes the stream itself"},
      {{"--progress", "loud", "list"}, 2, "--progress: "},
  });
  EXPECT_FALSE(std::filesystem::exists(m_root));
}

TEST_F(UsageTest, WrongInput) {
  const auto in = [this](const char* name) { return (m_directory / name).string(); };
  WriteFile(in("text.txt"), "no pictures here\n");
  WriteFile(in("text.kmv"), "no record either, though it is named like one\n");
  WriteFile(in("short.kmv"), std::string("\x01\xab\xfe\xdc", 4));
  WriteFile(in("file"), "");
  ASSERT_EQ(Shell("cd " + m_directory.string() +
                  " && ffmpeg -nostdin -v error -f lavfi -i sine=d=0.2 tone.wav && "
                  "ffmpeg -nostdin -v error -f lavfi -i testsrc=s=64x64:d=0.2 -c:v mjpeg jpeg.mkv")
                .code,
            0);
  const auto record = [](const std::string& input) { return Arguments{"record", "--input", input}; };
  Expect({
      {record(in("none.mkv")), 1, "no such file: " + in("none.mkv")},
      {record("rtsp://127.0.0.1:1/none"), 1, "nobody answers at rtsp://127.0.0.1:1/none"},
      {record("gopherfs://x"), 1, "no such kind of source: gopherfs://x"},
      {record(in("tone.wav")), 1, "no video in " + in("tone.wav")},
      {record(in("jpeg.mkv")), 1, in("jpeg.mkv") + " has mjpeg video, which cannot be recorded"},
      {record(in("text.txt")), 1, "neither video nor sound to be understood in " + in("text.txt")},
      {{"--root", in("file"), "record", "--input", CAMERA_CLIP}, 1, "cannot write into root " + in("file")},
      {{"--root", std::string(200, 'r'), "list"}, 1, "root /"},
      {{"list", "--date", "2024-01-31"}, 1, "no recordings on 2024-01-31\n"},
      {{"info", in("none.kmv")}, 1, in("none.kmv") + ": no such file\n"},
      {{"info", in("text.kmv")}, 1, in("text.kmv") + ": not a KMV, AVI or MP4 file\n"},
      {{"frames", in("text.txt")}, 1, in("text.txt") + ": not a KMV, AVI or MP4 file\n"},
      {{"frames", in("short.kmv")}, 1, in("short.kmv") + ": too short for a KMV file\n"},
      {{"repair", in("text.kmv")}, 1, in("text.kmv") + ": not a KMV, AVI or MP4 file\n"},
      {{"repair", m_directory.string()},
       1,
       m_directory.string() + ": is a directory, not a KMV, AVI or MP4 file\n"},
  });
}

TEST_F(UsageTest, HelpVersionAndAReaderThatGoesAway) {
  EXPECT_THAT(Run({"--version"}).out, StartsWith("recordctl 0."));
  for (const char* command : {"record", "list", "info", "frames", "repair", "convert"}) {
    const Result help = Run({command, "--help"});
    EXPECT_EQ(help.code, 0);
    EXPECT_THAT(help.out, HasSubstr(std::string("recordctl ") + command + " "));
    EXPECT_THAT(help.out, HasSubstr("Example"));
  }
  ASSERT_EQ(Run({"record", "--input", CAMERA_CLIP, "--duration", "1"}).code, 0);
  const Result cut = Shell("for i in 1 2 3; do $CTL frames " + Records().at(0).string() +
                           " --raw video || exit 1; done | head -c 10 >/dev/null");
  EXPECT_EQ(cut.err, "");
  const Result full = Shell("$CTL frames " + Records().at(0).string() + " >/dev/full");
  EXPECT_EQ(full.code, 1);
  EXPECT_EQ(full.err, "recordctl: cannot write the output: No space left on device\n");
}

}  // namespace
}  // namespace ctl
