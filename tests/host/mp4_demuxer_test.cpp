// MP4 files as they are read: growing, sought in, from elsewhere, broken.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <random>
#include <string>

#include "platform/host/mp4_input.h"
#include "tests/host/support/clips.h"
#include "tests/host/support/mp4_media.h"

namespace record {
namespace {

class Mp4DemuxerTest : public testing::Test {
 protected:
  const TempDir directory;
  const std::string path = directory.Path() + "/file.mp4";
};

// A reader that keeps up sees every frame once, across the moment when the file is finished.
TEST_F(Mp4DemuxerTest, FollowsAGrowingFile) {
  const TestFrames frames = DeviceFrames(VIDEO_CODEC_H264, AUDIO_CODEC_AAC, 777);
  TestMuxer muxer(path, VIDEO_CODEC_H264, AUDIO_CODEC_AAC);
  TestFrames read;
  size_t written = 0;
  while (!frames[written++].isKey) ASSERT_EQ(0, muxer.Write(frames[written - 1]));
  ASSERT_EQ(0, muxer.Write(frames[written - 1]));
  TestDemuxer early(path);
  ASSERT_TRUE(early.IsOpen()) << "there is a head with the first picture";
  EXPECT_EQ(1, early.audio.enabled);
  for (; written < frames.size(); ++written) {
    ASSERT_EQ(0, muxer.Write(frames[written]));
    if (frames[written].isKey) {
      const size_t before = read.size();
      for (TestFrame frame; early.Read(&frame);) read.push_back(frame);
      EXPECT_GT(read.size(), before);
    }
  }
  TestDemuxer late(path);
  EXPECT_EQ(5, late.extra.duration);
  EXPECT_EQ(0, Emp4DemuxerSeek(late.Handle(), 4500));
  EXPECT_NE(0, Emp4DemuxerSeekToNextKey(late.Handle())) << "not written yet";
  muxer.Close();
  for (TestFrame frame; early.Read(&frame);) read.push_back(frame);
  EXPECT_EQ(FromZero(frames), read);
  EXPECT_EQ(0, Emp4DemuxerSeekToNextKey(late.Handle()));
  TestFrame frame;
  while (late.Read(&frame) && !frame.isVideo) {
  }
  EXPECT_TRUE(frame.isKey);
  EXPECT_EQ(5128u, frame.stamp);
}

TEST_F(Mp4DemuxerTest, SeeksToKeyFrames) {
  const TestFrames frames = DeviceFrames(VIDEO_CODEC_H265, AUDIO_CODEC_G711_ULAW, 0);
  for (const bool isFinished : {false, true}) {
    TestMuxer muxer(path, VIDEO_CODEC_H265, AUDIO_CODEC_G711_ULAW);
    ASSERT_EQ(0, muxer.WriteAll(frames));
    if (isFinished) muxer.Close();
    TestDemuxer demuxer(path);
    ASSERT_TRUE(demuxer.IsOpen());
    EXPECT_EQ(VIDEO_CODEC_H265, demuxer.video.codec);
    EXPECT_EQ(160, demuxer.video.width);
    EXPECT_EQ(25, demuxer.video.framerate);
    EXPECT_EQ(25, demuxer.video.keyframe_interval);
    EXPECT_EQ(frames[0].bytes.substr(0, static_cast<size_t>(demuxer.video.config_length)),
              std::string(demuxer.video.config, demuxer.video.config + demuxer.video.config_length));
    EXPECT_EQ(11, demuxer.audio.codec);
    EXPECT_EQ(320, demuxer.audio.samples_per_frame);
    EXPECT_EQ(isFinished ? 6 : 5, demuxer.extra.duration);
    const auto nextPicture = [&] {
      TestFrame frame;
      while (demuxer.Read(&frame) && !frame.isVideo)
        EXPECT_LE((frame.stamp + 35) % 1000, 40u) << "sound of that time";
      EXPECT_TRUE(frame.isKey);
      return frame.stamp;
    };
    void* const handle = demuxer.Handle();
    EXPECT_EQ(0, Emp4DemuxerSeek(handle, 3999));
    EXPECT_EQ(3000u, nextPicture());
    EXPECT_EQ(0, Emp4DemuxerSeekToNextKey(handle));
    EXPECT_EQ(4000u, nextPicture());
    EXPECT_EQ(0, Emp4DemuxerSeek(handle, 0));
    EXPECT_EQ(0, Emp4DemuxerSeekToNextKey(handle));
    EXPECT_EQ(0, Emp4DemuxerSeekToNextKey(handle)) << "further on, though nothing was read";
    EXPECT_EQ(2000u, nextPicture());
    EXPECT_EQ(0, Emp4DemuxerSeekByPercent(handle, 50));
    EXPECT_EQ(isFinished ? 3000u : 2000u, nextPicture());
    EXPECT_EQ(0, Emp4DemuxerSeek(handle, 4000000000u));
    EXPECT_EQ(isFinished ? 5000u : 4000u, nextPicture());
    EXPECT_NE(0, Emp4DemuxerSeekToNextKey(handle));
    EXPECT_EQ(0, Emp4DemuxerSeekByPercent(handle, 0));
    EXPECT_EQ(isFinished ? FromZero(frames) : CompleteGroups(FromZero(frames)), demuxer.ReadAll());
  }
}

// Finished files are read without libavformat, in its order: also where one track stands behind the other.
TEST_F(Mp4DemuxerTest, SamplesComeAsLibavformatHandsThemOut) {
  TestFrames frames = DeviceFrames(VIDEO_CODEC_H264, AUDIO_CODEC_G711_ALAW, 0);
  for (const bool isApart : {false, true}) {
    if (isApart)
      std::stable_partition(frames.begin(), frames.end(), [](const TestFrame& frame) { return frame.isVideo; });
    TestMuxer muxer(path, VIDEO_CODEC_H264, AUDIO_CODEC_G711_ALAW);
    ASSERT_EQ(0, muxer.WriteAll(frames));
    muxer.Close();
    for (const int key : {0, 75}) {
      std::string error;
      const std::unique_ptr<Mp4Input> input = Mp4Input::Open(path, &error);
      AVFormatContext* context = nullptr;
      ASSERT_TRUE(input != nullptr && input->GoToKey(key));
      ASSERT_EQ(0, avformat_open_input(&context, path.c_str(), nullptr, nullptr));
      const AvInput plain(context);
      const std::int64_t time = input->TimeOf(kMp4Video, key);
      ASSERT_TRUE(key == 0 || av_seek_frame(context, 0, time, AVSEEK_FLAG_BACKWARD) >= 0);
      const AvPacketPtr ours(av_packet_alloc());
      const AvPacketPtr theirs(av_packet_alloc());
      int count = 0;
      for (; av_read_frame(context, theirs.get()) >= 0; ++count, av_packet_unref(theirs.get())) {
        ASSERT_TRUE(input->ReadPacket(ours.get()));
        ASSERT_EQ(theirs->stream_index, ours->stream_index) << count;
        ASSERT_EQ(theirs->pts, ours->pts);
        ASSERT_EQ(theirs->flags, ours->flags);
        ASSERT_EQ(Bytes(theirs->data, theirs->data + theirs->size), Bytes(ours->data, ours->data + ours->size));
        std::fill_n(ours->data, ours->size, 0xff);  // it may be changed
      }
      EXPECT_FALSE(input->ReadPacket(ours.get()));
      EXPECT_EQ(key == 0 ? 300 : 151, count);
    }
  }
}

struct Foreign {
  const char* name;
  const char* options;
  const char* soundCodec;
};

// Frames and presentation stamps are those that ffprobe tells; every key frame can be decoded on its own.
TEST_F(Mp4DemuxerTest, FilesFromElsewhere) {
  const Foreign files[] = {
      {"bframes.mp4", "-c:v libx264 -preset superfast -bf 3 -g 25 -pix_fmt yuv420p -c:a aac", "aac"},
      {"faststart.mov", "-c:v libx264 -preset ultrafast -g 25 -pix_fmt yuv420p -c:a pcm_alaw -movflags faststart",
       ""},
      {"fragments.mp4",
       "-c:v libx264 -preset superfast -bf 2 -g 25 -pix_fmt yuv420p -c:a aac -movflags frag_keyframe+empty_moov "
       "-metadata title=t",
       "aac"},
      {"dash.mp4",
       "-c:v libx265 -preset ultrafast -x265-params log-level=error -g 25 -c:a aac -movflags "
       "dash+frag_every_frame",
       "aac"},
      {"tracks.mp4",
       "-map 0 -map 0 -map 1 -map 1 -g 25 -c:v:0 mpeg4 -c:v:1 libx264 -preset:v:1 ultrafast -c:a:0 ac3 -c:a:1 aac",
       "aac"},
  };
  for (const Foreign& file : files) {
    SCOPED_TRACE(file.name);
    const std::string clip = Clip(file.name, 2, file.options);
    ASSERT_FALSE(clip.empty());
    TestDemuxer demuxer(clip);
    ASSERT_TRUE(demuxer.IsOpen());
    EXPECT_EQ(2, demuxer.extra.duration);
    EXPECT_NEAR(25, demuxer.video.framerate, 1);
    EXPECT_EQ(1, demuxer.audio.enabled);
    const bool isTracks = std::string(file.name) == "tracks.mp4";
    std::string stamps;
    std::string stream;
    for (const TestFrame& frame : demuxer.ReadAll()) {
      if (frame.isVideo) stamps += std::to_string(frame.stamp) + (frame.isKey ? " K\n" : " _\n");
      if (frame.isVideo) stream += frame.bytes;
    }
    EXPECT_EQ(OutputOf("ffprobe -v error -select_streams v:" + std::string(isTracks ? "1" : "0") +
                       " -show_entries packet=pts_time,flags -of compact=p=0:nk=1 " + clip +
                       " | awk -F'|' '{ printf \"%d %s\\n\", $1 * 1000 + 0.5, substr($2, 1, 1) }'"),
              stamps);
    EXPECT_EQ(0, Emp4DemuxerSeek(demuxer.Handle(), 1100));
    TestFrame frame;
    while (demuxer.Read(&frame) && !frame.isVideo) {
    }
    EXPECT_TRUE(frame.isKey);
    EXPECT_NEAR(1000, frame.stamp, 150);
    WriteFile(path, stream);
    EXPECT_EQ("", OutputOf("ffmpeg -nostdin -v error -xerror -i " + path + " -f null -"));
    EXPECT_EQ("50\n", OutputOf("ffprobe -v error -count_frames -show_entries stream=nb_read_frames -of "
                               "compact=p=0:nk=1 " +
                               path));
  }
}

// A cut without encoding begins with the key frame in front of it, hidden by an edit list: pictures keep their
// distances and seeking finds them.
TEST_F(Mp4DemuxerTest, PicturesHiddenByAnEditList) {
  for (const char* reordering : {"0", "3"}) {
    SCOPED_TRACE(reordering);
    const std::string clip = Clip("cut" + std::string(reordering) + ".mp4", 4,
                                  "-c:v libx264 -preset superfast -g 25 -sc_threshold 0 -pix_fmt yuv420p -c:a aac "
                                  "-bf " +
                                      std::string(reordering));
    ASSERT_EQ("", OutputOf("ffmpeg -nostdin -v error -y -ss 1.8 -i " + clip + " -c copy " + path));
    TestDemuxer demuxer(path);
    ASSERT_TRUE(demuxer.IsOpen());
    EXPECT_NEAR(3, demuxer.extra.duration, 1);
    std::vector<std::uint32_t> pictures;
    std::vector<std::uint32_t> sound;
    for (const TestFrame& frame : demuxer.ReadAll()) {
      if (frame.isVideo && pictures.size() % 25 == 0) {
        EXPECT_TRUE(frame.isKey);
      }
      (frame.isVideo ? pictures : sound).push_back(frame.stamp);
    }
    ASSERT_EQ(75u, pictures.size());
    ASSERT_FALSE(sound.empty());
    EXPECT_LT(sound.front(), 140u) << "copied from the same place";
    std::sort(pictures.begin(), pictures.end());
    for (size_t n = 0; n < pictures.size(); ++n) ASSERT_NEAR(40.0 * static_cast<double>(n), pictures[n], 1);
    const auto nextPicture = [&] {
      TestFrame frame;
      while (demuxer.Read(&frame) && !frame.isVideo) EXPECT_LT(frame.stamp, 2100u);
      EXPECT_TRUE(frame.isKey);
      return frame.stamp;
    };
    EXPECT_EQ(0, Emp4DemuxerSeek(demuxer.Handle(), 1900));
    EXPECT_EQ(1000u, nextPicture());
    EXPECT_EQ(0, Emp4DemuxerSeekToNextKey(demuxer.Handle()));
    EXPECT_EQ(2000u, nextPicture());
    EXPECT_EQ(0, Emp4DemuxerSeek(demuxer.Handle(), 0));
    EXPECT_EQ(0u, nextPicture());
  }
}

TEST_F(Mp4DemuxerTest, BrokenFiles) {
  EXPECT_FALSE(TestDemuxer(directory.Path()).IsOpen());
  EXPECT_FALSE(TestDemuxer(directory.Path() + "/none").IsOpen());
  ASSERT_EQ(0, mkfifo(path.c_str(), 0600));
  EXPECT_FALSE(TestDemuxer(path).IsOpen());
  unlink(path.c_str());
  for (const std::string& bytes : {std::string(), std::string("x"), std::string(100000, '\0')}) {
    WriteFile(path, bytes);
    EXPECT_FALSE(TestDemuxer(path).IsOpen());
  }
  EXPECT_FALSE(TestDemuxer(Clip("mpeg4.mp4", 1, "-c:v mpeg4 -c:a aac")).IsOpen());
  EXPECT_FALSE(TestDemuxer(Clip("sound.mp4", 1, "-vn -c:a aac")).IsOpen());

  const TestFrames frames = DeviceFrames(VIDEO_CODEC_H264, AUDIO_CODEC_AAC, 0);
  TestMuxer muxer(path, VIDEO_CODEC_H264, AUDIO_CODEC_AAC);
  ASSERT_EQ(0, muxer.WriteAll(frames));
  const std::string growing = ReadFile(path);
  muxer.Close();
  const std::string finished = ReadFile(path);

  // A track without a head keeps libavformat counting for seconds: refused wherever its movie hides.
  const auto with = [](std::string bytes, size_t at, const std::string& put) {
    return bytes.replace(at, put.size(), put);
  };
  const std::string headless = with(growing, growing.find("tkhd"), "free");
  const size_t movie = headless.find("moov") - 4;
  std::string behindBoxes = headless;
  for (int n = 0; n < 100; ++n) behindBoxes.insert(32, std::string("\0\0\0\10free", 8));
  const std::string endless = with(headless, movie, std::string(4, '\0'));
  const std::string overlong = with(headless, movie, std::string("\x7f\0\0\0", 4));
  // Counts for which libavformat would make room, and an edit list that no player of ours follows.
  const std::string manyFragmented = with(growing, growing.find("trun") + 8, std::string("\x01\0\0\0", 4));
  const std::string manySamples =
      with(finished, finished.rfind("stsz") + 8, std::string("\0\0\0\x01\x01\0\0\0", 8));
  const std::string manyInChunks = with(finished, finished.rfind("stsc") + 16, std::string("\x7f\0\0\0", 4));
  const std::string longTable = with(finished, finished.rfind("stts") + 8, std::string("\x10\0\0\0", 4));
  std::string parts = finished;
  parts.replace(finished.rfind("mdia") - 4, 0,
                std::string("\0\0\0\x30"
                            "edts\0\0\0\x28"
                            "elst\0\0\0\0\0\0\0\2"
                            "\0\0\1\0\0\0\0\0\0\1\0\0\0\0\1\0\0\0\x20\0\0\1\0\0",
                            48));
  for (const std::string& bytes :
       {headless, behindBoxes, endless, overlong, manyFragmented, manySamples, manyInChunks, longTable, parts}) {
    WriteFile(path, bytes);
    EXPECT_FALSE(TestDemuxer(path).IsOpen());
  }

  std::mt19937 random(7);
  for (int round = 0; round < 120; ++round) {
    std::string bytes = round % 2 == 0 ? growing : finished;
    for (unsigned damage = 0; damage < 1 + random() % 4; ++damage) {
      const size_t at = round % 3 == 0 ? random() % bytes.size() : random() % 3000;
      const size_t from = round % 3 == 1 ? bytes.size() - 3000 : 0;
      bytes[from + at % (bytes.size() - from)] = static_cast<char>(random());
    }
    WriteFile(path, bytes);
    TestDemuxer demuxer(path);
    if (!demuxer.IsOpen()) continue;
    EXPECT_LE(demuxer.ReadAll().size(), 2 * frames.size());
    Emp4DemuxerSeek(demuxer.Handle(), 3000);
    Emp4DemuxerSeekToNextKey(demuxer.Handle());
    demuxer.ReadAll();
  }
}

}  // namespace
}  // namespace record
