#include "format/media_file.h"

#include <cstring>
#include <random>

#include "tests/format/avi_bytes.h"
#include "tests/format/frame_reading.h"
#include "tests/format/kmv_bytes.h"
#include "tests/support/device_test.h"

namespace {

using record::MediaFile;
using record::MediaFrame;

class MediaFileTest : public fake::DeviceTest {
 protected:
  std::string Write(const std::string& name, const std::string& bytes) {
    fake::WriteFile(Path(name), bytes);
    return Path(name);
  }

  // Reads beside a reader that owns its frames, with a jump now and then; the frames that were not copied.
  static int ReadBeside(const std::string& path) {
    const std::unique_ptr<CVideoFile> reader = CreateVideoFile(path.c_str());
    MediaFile media;
    EXPECT_EQ(reader->Open(path.c_str()), 1);
    EXPECT_EQ(media.Open(path), 0);
    int lent = 0;
    MediaFrame frame;
    for (int n = 1;; ++n) {
      if (n % 60 == 0) {
        EXPECT_EQ(reader->MoveNextKeyFrame(), media.Reader().MoveNextKeyFrame());
      }
      const formattest::Frame expected = formattest::ReadFrame(*reader);
      EXPECT_EQ(media.Read(frame), expected.result);
      if (expected.result < 0) return lent;
      const std::string bytes(reinterpret_cast<const char*>(frame.data), static_cast<size_t>(frame.length));
      EXPECT_TRUE(bytes == expected.payload && frame.isVideo == expected.video && frame.isKey == expected.key &&
                  frame.stamp == expected.stamp)
          << n;
      lent += !frame.owned;
    }
  }
};

// Frames of a few bytes, of half a reader's block and a byte more, of more than a block.
TEST_F(MediaFileTest, FramesAreTheSameWhetherTheyAreCopiedOrNot) {
  kmvtest::Options options;
  kmvtest::File plain(options);
  options.scramble = 1;
  kmvtest::File scrambled(options);
  avitest::File avi;
  std::mt19937 random(1);
  for (std::uint32_t n = 0; n < 300; ++n) {
    const size_t lengths[] = {random() % 300, random() % 60000, 131072 + n % 2, n % 50 == 7 ? 600000u : 20000u};
    std::string bytes(lengths[random() % 16 < 8 ? 0 : random() % 4], '\0');
    for (char& byte : bytes) byte = static_cast<char>(random());
    plain.Video(n % 25 == 0, n * 40, bytes);
    scrambled.Video(n % 25 == 0, n * 40, bytes);
    avi.Video(n % 5 == 0, bytes);
    if (n % 3 == 0) plain.Audio(n * 40, "sound"), scrambled.Audio(n * 40, "sound"), avi.Audio("sound");
  }
  plain.Finish(12000), scrambled.Finish(12000), avi.Finish();
  EXPECT_GT(ReadBeside(Write("/plain.kmv", plain.Bytes())), 250);
  EXPECT_EQ(ReadBeside(Write("/scrambled.kmv", scrambled.Bytes())), 0);
  EXPECT_GT(ReadBeside(Write("/clip.avi", avi.Bytes())), 250);
}

// A callback that a frame is shown to may close its file.
TEST_F(MediaFileTest, ALentFrameOutlivesItsFile) {
  kmvtest::File file;
  file.Video(true, 7000, "first");
  file.Video(false, 7040, "second");
  MediaFile media;
  ASSERT_EQ(media.Open(Write("/clip.kmv", file.Bytes())), 0);
  MediaFrame frame;
  ASSERT_EQ(media.Read(frame), 5);
  ASSERT_EQ(media.Read(frame), 6);
  EXPECT_FALSE(frame.owned);
  media.Close();
  EXPECT_EQ(std::memcmp(frame.data, "second", 6), 0);
}

// Times count from the file's first packet, wherever the reading begins and though the stream's stamps wrap; a
// packet from before the first one belongs to the begin.
TEST_F(MediaFileTest, FramesOfAKmvFileCountFromItsFirstStamp) {
  constexpr std::uint32_t kFirst = 0xffffffffu - 499;  // wraps after half a second
  kmvtest::File file;
  for (std::uint32_t at = 0; at < 3000; at += 250) {
    file.Video(at % 1000 == 0, kFirst + at, "picture");
    if (at == 0) file.Audio(kFirst - 90, "early");
  }
  file.Finish(3000);
  MediaFile media;
  ASSERT_EQ(media.Open(Write("/clip.kmv", file.Bytes())), 0);
  ASSERT_EQ(media.Reader().SeekTimeOffset(2), 0);
  MediaFrame frame;
  ASSERT_EQ(media.Read(frame), 7);
  EXPECT_EQ(frame.offsetMs, 2000u);
  EXPECT_EQ(frame.stamp, kFirst + 2000);
  EXPECT_TRUE(frame.isKey && frame.isVideo);
  ASSERT_EQ(media.Reader().SeekTimeOffset(0), 0);
  std::vector<std::uint32_t> offsets;
  while (media.Read(frame) > 0) offsets.push_back(frame.offsetMs);
  EXPECT_THAT(offsets,
              ::testing::ElementsAre(0, 0, 250, 500, 750, 1000, 1250, 1500, 1750, 2000, 2250, 2500, 2750));
  EXPECT_EQ(frame.data, nullptr);
}

// A file that has no packet yet when it is opened.
TEST_F(MediaFileTest, TheFirstPacketMayComeLater) {
  kmvtest::File file;
  MediaFile media;
  const std::string path = Write("/clip.kmv", file.Bytes());
  ASSERT_EQ(media.Open(path), 0);
  MediaFrame frame;
  EXPECT_EQ(media.Read(frame), -1);
  file.Video(true, 7000, "a");
  file.Video(false, 7040, "b");
  Write("/clip.kmv", file.Bytes());
  ASSERT_EQ(media.Read(frame), 1);
  EXPECT_EQ(frame.offsetMs, 0u);
  ASSERT_EQ(media.Read(frame), 1);
  EXPECT_EQ(frame.offsetMs, 40u);
}

TEST_F(MediaFileTest, TellsInTheCallersWordsWhatItCannotRead) {
  MediaFile media({record::kLogModuleLifecycle, "\n\n\n"});
  EXPECT_EQ(media.Open("/nowhere/clip.Kmv"), -1);
  EXPECT_EQ(media.Open(Path("/none.KMV")), -1);
  EXPECT_FALSE(media.IsOpen());
  EXPECT_TRUE(m_platform.Logged("not support /nowhere/clip.Kmv\n\n\n"));
  EXPECT_TRUE(m_platform.Logged("open video file " + Path("/none.KMV") + " failed!!!\n\n\n"));
  for (const fake::LogLine& line : m_platform.Log()) EXPECT_EQ(line.module, record::kLogModuleLifecycle);
}

}  // namespace
