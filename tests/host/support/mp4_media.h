// Frames as a device hands them out, MP4 files written from them, and what programs that are not ours say of a
// file.
#ifndef TESTS_HOST_SUPPORT_MP4_MEDIA_H
#define TESTS_HOST_SUPPORT_MP4_MEDIA_H

#include <string>
#include <vector>

#include "record/platform.h"
#include "record/types.h"

namespace record {

struct TestFrame {
  bool isVideo;
  bool isKey;
  std::uint32_t stamp;
  std::string bytes;
  bool operator==(const TestFrame& o) const {
    return isVideo == o.isVideo && isKey == o.isKey && stamp == o.stamp && bytes == o.bytes;
  }
};
using TestFrames = std::vector<TestFrame>;

// Six seconds in groups of 25 pictures, the first stamp is `start`; AUDIO_CODEC_NONE: no sound.
TestFrames DeviceFrames(VideoCodec video, AudioCodec audio, std::uint32_t start);
// Frames from the begin up to, not including, the last key frame; stamps count from the first.
TestFrames CompleteGroups(const TestFrames& frames);
TestFrames FromZero(const TestFrames& frames);

class TestMuxer {
 public:
  TestMuxer(const std::string& path, VideoCodec video, AudioCodec audio);
  ~TestMuxer() { Close(); }
  TestMuxer(const TestMuxer&) = delete;
  TestMuxer& operator=(const TestMuxer&) = delete;

  // Writes and commits; the result of the first call that failed.
  int Write(const TestFrame& frame);
  int WriteAll(const TestFrames& frames);
  void Close();
  bool IsOpen() const { return m_muxer != nullptr; }

 private:
  void* m_muxer;
};

class TestDemuxer {
 public:
  explicit TestDemuxer(const std::string& path)
      : m_demuxer(Emp4DemuxerOpen(path.c_str(), &video, &audio, &extra)) {}
  ~TestDemuxer() { Emp4DemuxerClose(m_demuxer); }
  TestDemuxer(const TestDemuxer&) = delete;
  TestDemuxer& operator=(const TestDemuxer&) = delete;

  bool IsOpen() const { return m_demuxer != nullptr; }
  void* Handle() const { return m_demuxer; }
  bool Read(TestFrame* frame);
  TestFrames ReadAll();

  Emp4VideoParams video = {};
  Emp4AudioParams audio = {};
  Emp4ExtraParams extra = {};

 private:
  void* const m_demuxer;
};

// What a shell line prints, on both outputs.
std::string OutputOf(const std::string& command);
// ffprobe's view of a track ("v" or "a"): "<size> <pts in ms> <K or _>" a line.
std::string ProbePackets(const std::string& path, const std::string& track);
// The same of frames that were written.
std::string ExpectedPackets(const TestFrames& frames, bool isVideo);
// "" when ffmpeg decodes all of it without a warning, else what it says.
std::string FfmpegComplaints(const std::string& path);
// The types of the boxes of a file's top level, one word each.
std::string TopBoxes(const std::string& bytes);

}  // namespace record

#endif
