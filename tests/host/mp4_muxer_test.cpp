// MP4 files as they are written, judged by programs that are not ours.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <random>
#include <string>

#include "platform/host/length_prefix.h"
#include "platform/host/mp4_movie.h"
#include "platform/host/mp4_muxer.h"
#include "platform/host/mp4_sample_description.h"

#include "tests/host/support/clips.h"
#include "tests/host/support/mp4_media.h"
#include "tests/host/support/short_memory.h"

namespace record {
namespace {

class Mp4MuxerTest : public testing::Test {
 protected:
  const TempDir directory;
  const std::string path = directory.Path() + "/file.mp4";
};

class Mp4CodecTest : public Mp4MuxerTest, public testing::WithParamInterface<VideoCodec> {};
INSTANTIATE_TEST_SUITE_P(, Mp4CodecTest, testing::Values(VIDEO_CODEC_H264, VIDEO_CODEC_H265),
                         [](const auto& info) { return info.param == VIDEO_CODEC_H264 ? "H264" : "H265"; });

// Every program finds all frames with their stamps, decodes them and knows the length.
TEST_P(Mp4CodecTest, FinishedFilesAreOrdinary) {
  for (const AudioCodec sound :
       {AUDIO_CODEC_AAC, AUDIO_CODEC_NONE, AUDIO_CODEC_G711_ULAW, AUDIO_CODEC_G711_ALAW}) {
    SCOPED_TRACE(sound);
    const TestFrames frames = DeviceFrames(GetParam(), sound, 4294966000u);  // wraps
    ASSERT_GT(frames.size(), 140u);
    TestMuxer muxer(path, GetParam(), sound);
    ASSERT_EQ(0, muxer.WriteAll(frames));
    muxer.Close();
    EXPECT_EQ("ftyp mdat moov ", TopBoxes(ReadFile(path)));
    EXPECT_EQ("isom", ReadFile(path).substr(8, 4));
    EXPECT_EQ(ExpectedPackets(frames, true), ProbePackets(path, "v"));
    EXPECT_EQ(ExpectedPackets(frames, false), ProbePackets(path, "a"));
    const std::string facts = OutputOf(
        "ffprobe -v warning -show_entries format=duration:stream=codec_name,width "
        "-of compact=p=0:nk=1 " +
        path);
    EXPECT_NE(std::string::npos, facts.find(GetParam() == VIDEO_CODEC_H264 ? "h264|160\n" : "hevc|160\n"))
        << facts;
    EXPECT_NE(std::string::npos, facts.find("\n6.")) << facts;
    EXPECT_EQ("", FfmpegComplaints(path));
    // What GStreamer takes out of each track is what ffmpeg takes out.
    std::string gst = "gst-launch-1.0 -q filesrc location=" + path + " ! qtdemux name=d";
    std::string ffmpeg = "ffmpeg -nostdin -v error -y -i " + path;
    std::string compare;
    for (const std::string track : {"video", "audio"}) {
      if (track == "audio" && sound == AUDIO_CODEC_NONE) continue;
      const std::string out = std::string(path).append(".").append(track);
      gst.append(" d.").append(track).append("_0 ! queue ! filesink location=").append(out).append(".gst");
      ffmpeg.append(" -map 0:").append(track, 0, 1).append(" -c copy -f data ").append(out);
      compare.append(" && test -s ").append(out);
      compare.append(" && cmp ").append(out).append(" ").append(out).append(".gst");
    }
    EXPECT_EQ("", OutputOf(gst.append(" && ").append(ffmpeg).append(compare)));
    TestDemuxer demuxer(path);
    ASSERT_TRUE(demuxer.IsOpen());
    EXPECT_EQ(FromZero(frames), demuxer.ReadAll());
  }
}

// What is left of a file whose writer is gone is all complete groups, wherever it is cut behind them.
TEST_F(Mp4MuxerTest, AbandonedFilesKeepTheirGroups) {
  const TestFrames frames = DeviceFrames(VIDEO_CODEC_H264, AUDIO_CODEC_G711_ULAW, 5000);
  TestMuxer muxer(path, VIDEO_CODEC_H264, AUDIO_CODEC_G711_ULAW);
  TestFrames written;
  std::vector<std::pair<size_t, size_t>> states;  // size of the file, frames in it
  const std::string copy = directory.Path() + "/copy.mp4";
  for (const TestFrame& frame : frames) {
    written.push_back(frame);
    ASSERT_EQ(0, muxer.Write(frame));
    const size_t size = std::filesystem::file_size(path);
    if (states.empty() || states.back().first != size) states.emplace_back(size, CompleteGroups(written).size());
  }
  ASSERT_EQ(6u, states.size()) << "the head, and a fragment a group";
  const std::string bytes = ReadFile(path);
  const TestFrames expected = FromZero(frames);
  std::mt19937 random(1);
  for (size_t n = 0; n < states.size(); ++n) {
    const size_t next = n + 1 < states.size() ? states[n + 1].first : bytes.size() + 1;
    for (int cut = 0; cut < 4; ++cut) {
      const size_t size = cut == 0 ? states[n].first : states[n].first + random() % (next - states[n].first);
      WriteFile(copy, bytes.substr(0, size));
      TestDemuxer demuxer(copy);
      ASSERT_TRUE(demuxer.IsOpen()) << size;
      TestFrames read = demuxer.ReadAll();
      ASSERT_LE(states[n].second, read.size()) << size;
      read.resize(states[n].second);
      ASSERT_TRUE(std::equal(read.begin(), read.end(), expected.begin())) << size;
    }
  }
  const TestFrames complete = CompleteGroups(frames);
  WriteFile(copy, bytes);
  EXPECT_EQ(ExpectedPackets(complete, true), ProbePackets(copy, "v"));
  EXPECT_EQ(ExpectedPackets(complete, false), ProbePackets(copy, "a"));
  EXPECT_EQ("", FfmpegComplaints(copy));
}

// Power that fails while a file is closed: all that was there before can still be read.
TEST_F(Mp4MuxerTest, ClosingIsSafeAtEveryByte) {
  const TestFrames frames = DeviceFrames(VIDEO_CODEC_H265, AUDIO_CODEC_AAC, 0);
  TestMuxer muxer(path, VIDEO_CODEC_H265, AUDIO_CODEC_AAC);
  ASSERT_EQ(0, muxer.WriteAll(frames));
  const std::string before = ReadFile(path);
  muxer.Close();
  const std::string after = ReadFile(path);
  ASSERT_LT(before.size(), after.size());
  // Closing appends, and then goes over the one small box.
  EXPECT_EQ(before.substr(0, kFileTypeSize), after.substr(0, kFileTypeSize));
  const size_t behind = kFileTypeSize + kSwitchSize;
  EXPECT_EQ(before.substr(behind), after.substr(behind, before.size() - behind));

  const TestFrames expected = FromZero(frames);
  const std::string copy = directory.Path() + "/copy.mp4";
  const std::string appended = before.substr(0, behind) + after.substr(behind);
  const size_t index = appended.rfind("free") - 4;
  std::vector<size_t> cuts = {before.size(), index, index + 1, index + 8, appended.size() - 1, appended.size()};
  for (size_t cut = before.size(); cut < appended.size(); cut += 997) cuts.push_back(cut);
  for (const size_t cut : cuts) {
    WriteFile(copy, appended.substr(0, cut));
    TestDemuxer demuxer(copy);
    ASSERT_TRUE(demuxer.IsOpen()) << cut;
    const TestFrames read = demuxer.ReadAll();
    ASSERT_GE(read.size(), CompleteGroups(frames).size()) << cut;
    ASSERT_TRUE(cut < index || frames.size() == read.size()) << cut;
    ASSERT_TRUE(std::equal(read.begin(), read.end(), expected.begin())) << cut;
  }
  EXPECT_EQ(ExpectedPackets(frames, true), ProbePackets(copy, "v")) << "appended, not switched";
}

// Whatever the stamps do, times go up and the picture and sound stay together.
TEST_F(Mp4MuxerTest, WildStampsAreBent) {
  TestFrames frames = DeviceFrames(VIDEO_CODEC_H264, AUDIO_CODEC_G711_ULAW, 0);
  for (size_t n = 0; n < frames.size(); ++n) {
    std::uint32_t& stamp = frames[n].stamp;
    if (n >= 60) stamp -= 3600000;          // the clock is set back by an hour
    if (n >= 120) stamp += 2000000000;      // and ahead by weeks
    if (n >= 160 && n < 170) stamp -= 300;  // frames that overtook each other
    if (n >= 200) stamp += 30000;           // half a minute without a frame
  }
  TestMuxer muxer(path, VIDEO_CODEC_H264, AUDIO_CODEC_G711_ULAW);
  ASSERT_EQ(0, muxer.WriteAll(frames));
  muxer.Close();
  EXPECT_EQ("", OutputOf("ffmpeg -nostdin -v warning -i " + path + " -c copy -f null -"));
  TestDemuxer demuxer(path);
  ASSERT_TRUE(demuxer.IsOpen());
  EXPECT_NEAR(36, demuxer.extra.duration, 1);
  const TestFrames read = demuxer.ReadAll();
  ASSERT_EQ(frames.size(), read.size());
  std::int64_t last[2] = {-1, -1};
  for (const TestFrame& frame : read) {
    const std::int64_t other = last[frame.isVideo ? 0 : 1];
    EXPECT_LT(last[frame.isVideo ? 1 : 0], frame.stamp);
    EXPECT_TRUE(frame.stamp < 1000 || frame.stamp > 6000 || std::abs(other - frame.stamp) < 400) << frame.stamp;
    last[frame.isVideo ? 1 : 0] = frame.stamp;
  }
  EXPECT_NEAR(36000, static_cast<double>(last[0]), 200);
  EXPECT_NEAR(36000, static_cast<double>(last[1]), 200);
}

TEST_F(Mp4MuxerTest, RefusesWhatItCannotWrite) {
  const TestFrames frames = DeviceFrames(VIDEO_CODEC_H264, AUDIO_CODEC_AAC, 0);
  EXPECT_FALSE(TestMuxer(path, VIDEO_CODEC_MPEG4, AUDIO_CODEC_NONE).IsOpen());
  EXPECT_FALSE(TestMuxer(directory.Path(), VIDEO_CODEC_H264, AUDIO_CODEC_NONE).IsOpen());
  std::filesystem::create_symlink(directory.Path() + "/elsewhere", path);
  EXPECT_FALSE(TestMuxer(path, VIDEO_CODEC_H264, AUDIO_CODEC_NONE).IsOpen());
  std::filesystem::remove(path);
  TestMuxer muxer(path, VIDEO_CODEC_H264, AUDIO_CODEC_AAC);
  EXPECT_NE(0, muxer.Write({true, true, 0, "no start code"}));
  EXPECT_NE(0, muxer.Write({true, true, 0, {"\0\0\0\1\x65 no sets", 12}}));
  EXPECT_NE(0, muxer.Write({false, false, 0, "no head"}));
  TestFrames accepted;
  for (const TestFrame& frame : frames) {
    TestFrame tried = frame;
    tried.isKey = frame.isKey && frame.stamp > 1500;  // there is nothing to see before a key frame
    if (muxer.Write(tried) == 0) accepted.push_back(tried);
  }
  muxer.Close();
  TestDemuxer demuxer(path);
  ASSERT_TRUE(demuxer.IsOpen());
  EXPECT_EQ(FromZero(accepted), demuxer.ReadAll());
  EXPECT_EQ(accepted[0].stamp, frames[0].stamp) << "sound waits for the picture";
}

// A medium that is full for a while costs nothing once there is room again, and never leaves a broken file.
TEST_F(Mp4MuxerTest, FullMedium) {
  const TestFrames frames = DeviceFrames(VIDEO_CODEC_H264, AUDIO_CODEC_G711_ALAW, 0);
  const TestFrames expected = FromZero(frames);
  signal(SIGXFSZ, SIG_IGN);
  struct rlimit before;
  getrlimit(RLIMIT_FSIZE, &before);
  const struct rlimit full = {70000, before.rlim_max};
  for (const bool staysFull : {false, true}) {
    TestMuxer muxer(path, VIDEO_CODEC_H264, AUDIO_CODEC_G711_ALAW);
    setrlimit(RLIMIT_FSIZE, &full);
    int failures = 0;
    for (size_t n = 0; n < frames.size(); ++n) {
      failures += muxer.Write(frames[n]) != 0 ? 1 : 0;
      if (!staysFull && n == 130) setrlimit(RLIMIT_FSIZE, &before);
    }
    errno = 0;
    muxer.Close();
    EXPECT_EQ(staysFull ? EFBIG : 0, errno);
    setrlimit(RLIMIT_FSIZE, &before);
    EXPECT_GE(failures, 1);
    EXPECT_LE(failures, 5) << "once a group, not once a frame";
    TestDemuxer demuxer(path);
    ASSERT_TRUE(demuxer.IsOpen());
    const TestFrames read = demuxer.ReadAll();
    EXPECT_EQ(staysFull ? TestFrames(expected.begin(), expected.begin() + 50) : expected, read);
    EXPECT_EQ("", FfmpegComplaints(path));
  }
}

// Whatever call runs out of memory: what was accepted is in the file, once and whole, and nothing else.
TEST_F(Mp4MuxerTest, ShortMemory) {
  TestFrames frames = DeviceFrames(VIDEO_CODEC_H264, AUDIO_CODEC_AAC, 0);
  frames.resize(120);  // groups begin with pictures 0, 25 and 50
  bool hasFailed = true;
  int rounds = 0;
  for (int at = 0; hasFailed; at += 1 + at / 12, ++rounds) {
    TestMuxer muxer(path, VIDEO_CODEC_H264, AUDIO_CODEC_AAC);
    std::vector<bool> isAccepted(frames.size());
    FailAllocationAfter(at);
    for (size_t n = 0; n < frames.size(); ++n) isAccepted[n] = muxer.Write(frames[n]) == 0;
    hasFailed = EndShortMemory();
    muxer.Close();
    TestFrames accepted;
    std::copy_if(frames.begin(), frames.end(), std::back_inserter(accepted),
                 [&](const TestFrame& frame) { return isAccepted[static_cast<size_t>(&frame - frames.data())]; });
    TestDemuxer demuxer(path);
    ASSERT_TRUE(demuxer.IsOpen()) << at;
    ASSERT_EQ(FromZero(accepted), demuxer.ReadAll()) << at;
    ASSERT_GE(accepted.size(), frames.size() - 50) << at << ": a group at most";
  }
  EXPECT_GT(rounds, 30);
  for (int at = 0; at < 150; at += 1 + at / 6) {
    TestMuxer muxer(path, VIDEO_CODEC_H264, AUDIO_CODEC_AAC);
    ASSERT_EQ(0, muxer.WriteAll(frames));
    FailAllocationAfter(at);
    muxer.Close();
    const int error = errno;
    EndShortMemory();
    const TestFrames read = TestDemuxer(path).ReadAll();
    ASSERT_TRUE(error != 0 || read.size() == frames.size()) << at << ": a loss that nobody is told of";
    ASSERT_GE(read.size(), CompleteGroups(frames).size()) << at;
    ASSERT_TRUE(std::equal(read.begin(), read.end(), FromZero(frames).begin())) << at;
  }
}

// Without bounds its index would grow for days; 150 hours of 8 kHz do not fit into an entry of an index.
TEST_F(Mp4MuxerTest, StaysInFragmentsWhenItsIndexCannotBe) {
  for (const bool isLong : {false, true}) {
    TestFrames frames = DeviceFrames(VIDEO_CODEC_H264, AUDIO_CODEC_G711_ULAW, 0);
    for (size_t n = frames.size() / 2; isLong && n < frames.size(); ++n) frames[n].stamp += 150 * 3600 * 1000;
    const Emp4VideoParams video = {VIDEO_CODEC_H264, 160, 120, 25, 25, 0, {}};
    const Emp4AudioParams audio = {1, 11, 320, 8000, 1, {}};
    const Emp4ExtraParams extra = {600000, 0};
    const auto muxer = Mp4Muxer::Open(path.c_str(), video, &audio, &extra, isLong ? Mp4Muxer::kMostTables : 1000);
    ASSERT_TRUE(muxer);
    for (const TestFrame& frame : frames) {
      const auto* data = reinterpret_cast<const unsigned char*>(frame.bytes.data());
      const int length = static_cast<int>(frame.bytes.size());
      ASSERT_EQ(0, frame.isVideo ? muxer->WriteVideo(frame.isKey, data, length, frame.stamp)
                                 : muxer->WriteAudio(data, length, frame.stamp));
    }
    EXPECT_EQ(0, muxer->Finish());
    EXPECT_EQ("ftyp free moov moof mdat moof", TopBoxes(ReadFile(path)).substr(0, 29));
    EXPECT_EQ(FromZero(frames), TestDemuxer(path).ReadAll());
  }
}

// Index entries beyond 4 GiB, with a hole where the gigabytes would be.
TEST_F(Mp4MuxerTest, BeyondFourGigabytes) {
  const TestFrames frames = DeviceFrames(VIDEO_CODEC_H264, AUDIO_CODEC_NONE, 0);
  ASSERT_FALSE(frames.empty());
  MovieDescription movie;
  const auto* key = reinterpret_cast<const unsigned char*>(frames[0].bytes.data());
  const Bytes sets = FindDecoderSets(VIDEO_CODEC_H264, key, frames[0].bytes.size()).bytes;
  movie.tracks[kMp4Video] = {1000, DescribeVideo(VIDEO_CODEC_H264, sets, {160, 120}), 160, 120, 40};
  SampleTable tables[kMp4Tracks];
  const Bytes head = FileHead(movie);
  const std::uint64_t start = (std::uint64_t{5} << 30) + 1;
  Bytes media;
  std::vector<CodedUnit> units;
  for (const TestFrame& frame : frames) {
    const std::uint64_t offset = start + media.size();
    const auto* data = reinterpret_cast<const unsigned char*>(frame.bytes.data());
    FindUnits(data, frame.bytes.size(), &units);
    AppendWithLengths(data, units, &media);
    const auto size = static_cast<std::uint32_t>(SizeWithLengths(units));
    tables[kMp4Video].Add({frame.stamp, size, frame.isKey, offset});
  }
  const Bytes index = HiddenIndex(movie, tables);
  media.insert(media.end(), index.begin(), index.end());
  const Bytes finish = FinishingSwitch(start + media.size() - index.size());
  const int file = open(path.c_str(), O_WRONLY | O_CREAT, 0600);
  ASSERT_EQ(static_cast<ssize_t>(head.size()), pwrite(file, head.data(), head.size(), 0));
  ASSERT_EQ(static_cast<ssize_t>(media.size()),
            pwrite(file, media.data(), media.size(), static_cast<off_t>(start)));
  ASSERT_EQ(16, pwrite(file, finish.data(), finish.size(), kFileTypeSize));
  close(file);
  EXPECT_EQ(ExpectedPackets(frames, true), ProbePackets(path, "v"));
  EXPECT_EQ("", FfmpegComplaints(path));
  EXPECT_EQ(frames, TestDemuxer(path).ReadAll());
}

}  // namespace
}  // namespace record
