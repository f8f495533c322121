// Pictures of a real stream, looked at by a decoder that is not ours.
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <string>

#include "record_host/host.h"
#include "tests/host/support/clips.h"
#include "tests/host/support/frame_collector.h"
#include "tests/host/support/mp4_media.h"

namespace record {
namespace {

struct Codec {
  const char* name;
  const char* options;
};

class PictureTest : public testing::TestWithParam<Codec> {};

TEST_P(PictureTest, IsTheStreamsInTheSizeThatWasAskedFor) {
  const TempDir directory;
  const std::string clip = Clip(std::string("picture-") + GetParam().name + ".mkv", 2, GetParam().options);
  ASSERT_NE("", clip);
  ASSERT_TRUE(ReadToItsEnd(STREAM_SUB, clip));
  struct Size {
    int width, height;
    const char* is;
  };
  size_t bytes[2] = {};
  for (const Size& size : {Size{64, 0, "64,48"}, Size{301, 77, "301,77"}}) {
    for (const int quality : {5, 95}) {
      JpegPicture picture = {};
      ASSERT_EQ(0, TakeJpegPicture(STREAM_SUB, size.width, size.height, quality, &picture));
      bytes[quality > 50 ? 1 : 0] = static_cast<size_t>(picture.length);
      std::ofstream(directory.Path() + "/a.jpg", std::ios::binary)
          .write(reinterpret_cast<const char*>(picture.data), picture.length);
    }
    EXPECT_LT(bytes[0], bytes[1]);
    EXPECT_EQ(OutputOf("ffprobe -v error -show_entries stream=codec_name,width,height -of csv=p=0 " +
                       directory.Path() + "/a.jpg"),
              std::string("mjpeg,") + size.is + "\n");
    const std::string grey =
        OutputOf("ffmpeg -v error -nostdin -i " + directory.Path() + "/a.jpg -f rawvideo -pix_fmt gray -");
    ASSERT_FALSE(grey.empty());
    const auto [darkest, lightest] = std::minmax_element(grey.begin(), grey.end(), [](char a, char b) {
      return static_cast<unsigned char>(a) < static_cast<unsigned char>(b);
    });
    EXPECT_GT(static_cast<unsigned char>(*lightest) - static_cast<unsigned char>(*darkest), 150);
  }
  // The same picture as the clip's own decoder shows: the last key frame, 25 frames from the begin.
  const std::string psnr =
      OutputOf("ffmpeg -nostdin -i " + directory.Path() + "/a.jpg -i " + clip +
               " -lavfi \"[1:v]select=eq(n\\,25),scale=301:77[r];[0:v][r]psnr\" -f null - 2>&1 | "
               "sed -n 's/.*PSNR.*average:\\([0-9]*\\).*/\\1/p'");
  EXPECT_GE(atoi(psnr.c_str()), 25) << psnr;
  JpegPicture none = {};
  EXPECT_EQ(-1, TakeJpegPicture(STREAM_SUB, 301, 77, 95, &none)) << "that one again, of a source that has ended";
  HostStreamClose(STREAM_SUB);

  EXPECT_EQ(-1, TakeJpegPicture(STREAM_SUB, 0, 0, 0, &none)) << "no stream";
  EXPECT_EQ(-1, TakeJpegPicture(STREAM_SUB, -1, 0, 0, &none));
  EXPECT_EQ(-1, TakeJpegPicture(99, 0, 0, 0, &none));
}

INSTANTIATE_TEST_SUITE_P(Codecs, PictureTest,
                         testing::Values(Codec{"h264", "-c:v libx264 -preset ultrafast -g 25 -bf 0 -an"},
                                         Codec{"h265",
                                               "-c:v libx265 -preset ultrafast -x265-params "
                                               "log-level=none:keyint=25:min-keyint=25:scenecut=0:bframes=0 -an"},
                                         Codec{"mpeg4", "-c:v mpeg4 -q:v 4 -g 25 -sc_threshold 1000000000 -an"}),
                         [](const testing::TestParamInfo<Codec>& info) { return std::string(info.param.name); });

// A program that feeds frames by itself tells no codec; a key frame that is none is no picture.
TEST(PictureOfAFedStreamTest, WhatCannotBeDecodedIsRefused) {
  const unsigned char sets[] = {0, 0, 0, 1, 0x67, 0x42, 0, 0x0a, 0xff};
  ASSERT_EQ(0, HostStreamSetConfig(7, sets, sizeof sets));
  ASSERT_EQ(1, HostStreamPublish(7, sets, sizeof sets, 1, 1000, 0));
  JpegPicture none = {};
  EXPECT_EQ(-1, TakeJpegPicture(7, 0, 0, 0, &none));
  HostStreamClear(7);
}

}  // namespace
}  // namespace record
