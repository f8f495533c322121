// AVI record files in every kind of codec, judged by programs that are not ours.
#include <gmock/gmock.h>

#include <memory>
#include <sstream>

#include "tests/ctl/ctl_run.h"

namespace ctl {
namespace {

struct Video {
  const char* codec;
  const char* options;
  const char* gstreamer;  // what decodes it there, "" for none
  const char* warnings;   // that ffmpeg may give
};

constexpr Video kVideos[] = {
    {"h264", "libx264 -bf 0 -g 3", "h264parse ! avdec_h264", ""},
    {"hevc", "libx265 -x265-params log-level=error:bframes=0 -g 3", "", ""},
    // MPEG-4 has it in front of every key frame: ffmpeg minds, and takes the first.
    {"mpeg4", "mpeg4 -g 3", "avdec_mpeg4",
     "([^\n]*Ignoring multiple VOL headers\n( *Last message repeated [^\n]*\n)?)*"},
};
constexpr const char* kSounds[] = {"pcm_mulaw", "pcm_alaw", "aac", "pcm_s16le", ""};

// The header's words on its sound are as they are laid down: ffmpeg minds those of all but G.711.
std::string WithoutSound(const std::string& complaints) {
  std::istringstream lines(complaints);
  std::string rest;
  for (std::string line; std::getline(lines, line);) {
    const auto tells = [&line](const char* words) { return line.find(words) != std::string::npos; };
    if (!tells("Guessed Channel Layout") && !tells("sample size (1) != block align (2)") &&
        !tells("codec parameters for stream 1 (Audio") && !tells("Consider increasing the value"))
      rest += line + "\n";
  }
  return rest;
}

class AviTest : public CtlTest, public testing::WithParamInterface<Video> {
 protected:
  // A fifth of a second with each sound, the pictures the same in all of them.
  std::vector<std::string> MakeClips() const {
    const std::string video = (m_directory / "video.mkv").string();
    std::string line = "ffmpeg -nostdin -v error -f lavfi -i testsrc2=size=160x120:rate=25:duration=0.2 -c:v " +
                       std::string(GetParam().options) + " " + video + " && ffmpeg -nostdin -v error -i " + video +
                       " -f lavfi -i sine=sample_rate=8000:duration=0.2";
    std::vector<std::string> clips;
    for (const std::string sound : kSounds) {
      clips.push_back((m_directory / ("clip" + sound + ".mkv")).string());
      line += (sound.empty() ? " -map 0:v" : " -map 0:v -map 1:a -c:a " + sound) + " -c:v copy " + clips.back();
    }
    const Result made = Shell(line);
    EXPECT_EQ(made.code, 0) << made.err;
    return clips;
  }

  // Frames and their bytes, as ffprobe finds them.
  std::string Probe(const std::string& file, const char* stream) const {
    return Shell("ffprobe -v error -select_streams " + std::string(stream) +
                 " -show_entries stream=codec_name:packet=size -of csv=p=0 " + file)
        .out;
  }

  Result Decode(const std::string& file) const {
    return Shell("ffmpeg -nostdin -v warning -xerror -an -i " + file +
                 " -map 0:v -fps_mode passthrough -pix_fmt yuv420p -f rawvideo - | md5sum");
  }

  void CheckVideo(const std::string& file, const std::string& pictures) const {
    const Result decoded = Decode(file);
    EXPECT_EQ(decoded.code, 0);
    EXPECT_EQ(decoded.out, pictures);
    EXPECT_THAT(WithoutSound(decoded.err), testing::MatchesRegex(GetParam().warnings));
    std::string expected;
    for (const Json& frame : Frames(file))
      if (frame["media"] == "video") expected += std::to_string(frame["bytes"].get<int>()) + "\n";
    EXPECT_EQ(Probe(file, "v"), expected + GetParam().codec + "\n") << "every frame is found where it is";
  }

  void CheckAudio(const std::string& file, const std::string& sound, const std::string& clip) const {
    const std::string raw = Raw(file, "audio");
    const std::string format = sound == "aac" ? "adts" : "data";
    const std::string source =
        Shell("ffmpeg -nostdin -v error -i " + clip + " -map 0:a -c copy -f " + format + " -").out;
    EXPECT_FALSE(raw.empty());
    EXPECT_NE(source.find(raw), std::string::npos) << "the bytes are the clip's";
    if (sound != "pcm_mulaw") return;  // the header calls all of it that
    std::string told = Shell("ffmpeg -nostdin -v error -i " + file + " -map 0:a -c copy -f data -").out;
    EXPECT_EQ(told, raw);
    EXPECT_EQ(Shell("ffprobe -v error -select_streams a -show_entries stream=codec_name,sample_rate,channels -of "
                    "csv=p=0 " +
                    file)
                  .out,
              "pcm_mulaw,8000,1\n");
  }

  // To the end, with the same pictures and the same sound.
  void CheckGstreamer(const std::string& file, const std::string& pictures) const {
    const Result played =
        Shell("gst-launch-1.0 -q filesrc location=" + file + " ! avidemux name=d d.video_0 ! queue ! " +
              GetParam().gstreamer + " ! videoconvert ! video/x-raw,format=I420 ! filesink location=" + file +
              ".yuv d.audio_0 ! queue ! audio/x-mulaw ! filesink location=" + file + ".ulaw && md5sum < " + file +
              ".yuv");
    EXPECT_EQ(played.code, 0) << played.err;
    EXPECT_EQ(played.out, pictures);
    EXPECT_EQ(ReadFile(file + ".ulaw"), Raw(file, "audio"));
  }
};

INSTANTIATE_TEST_SUITE_P(, AviTest, testing::ValuesIn(kVideos),
                         [](const auto& info) { return std::string(info.param.codec); });

TEST_P(AviTest, OtherProgramsPlayThem) {
  const std::vector<std::string> clips = MakeClips();
  const std::string pictures = Decode((m_directory / "video.mkv").string()).out;
  std::vector<std::unique_ptr<Process>> recordings;
  // All at once: each takes as long as its clip.
  for (const std::string& clip : clips) {
    recordings.push_back(std::make_unique<Process>(
        m_directory,
        Arguments{RECORDCTL, "--root", clip + ".root", "record", "--input", clip, "--container", "avi"}));
  }
  for (std::size_t i = 0; i < clips.size(); ++i) {
    SCOPED_TRACE(clips[i]);
    const Result recorded = recordings[i]->Wait();
    ASSERT_EQ(recorded.code, 0) << recorded.err;
    m_root = clips[i] + ".root";
    ASSERT_EQ(Records().size(), 1u);
    const std::string file = Records()[0].string();
    const Result info = Run({"info", file});
    EXPECT_EQ(info.code, 0) << info.out << info.err;
    const std::string sound = kSounds[i];
    CheckVideo(file, pictures);
    if (!sound.empty()) CheckAudio(file, sound, clips[i]);
    if (sound == "pcm_mulaw" && GetParam().gstreamer[0] != '\0') CheckGstreamer(file, pictures);
  }
}

}  // namespace
}  // namespace ctl
