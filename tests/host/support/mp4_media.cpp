#include "tests/host/support/mp4_media.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "tests/host/support/clips.h"
#include "tests/host/support/frame_collector.h"

namespace record {
namespace {

void Append(const FrameCollector& from, bool isVideo, double base, std::uint32_t start, TestFrames* to) {
  for (const CollectedFrame& frame : from.frames) {
    const auto stamp = start + static_cast<std::uint32_t>(std::lround(frame.view.timestampMs - base));
    to->push_back({isVideo, isVideo && frame.view.keyFrame != 0, stamp, {frame.bytes.begin(), frame.bytes.end()}});
  }
}

// Any bytes are G.711.
void AppendG711(std::uint32_t start, size_t count, TestFrames* to) {
  for (size_t n = 0; n < count; ++n) {
    std::string bytes(320, '\0');
    for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<char>(n * 7 + i * i);
    to->push_back({false, false, start + static_cast<std::uint32_t>(n) * 40 + 5, bytes});
  }
}

}  // namespace

TestFrames DeviceFrames(VideoCodec video, AudioCodec audio, std::uint32_t start) {
  const bool isH264 = video == VIDEO_CODEC_H264;
  const std::string clip =
      isH264 ? Clip("h264aac.mkv", 6, "-c:v libx264 -preset ultrafast -g 25 -bf 0 -pix_fmt yuv420p -c:a aac")
             : Clip("h265aac.mkv", 6,
                    "-c:v libx265 -preset ultrafast -x265-params log-level=error:bframes=0:scenecut=0 -g 25 "
                    "-pix_fmt yuv420p -c:a aac");
  FrameCollector pictures(0, 77);
  FrameCollector sound(2, 77);
  if (!ReadToItsEnd(0, clip)) return {};
  if (pictures.Register(1e9)) pictures.Drain();
  if (sound.Register(1e9)) sound.Drain();
  HostStreamClose(0);
  TestFrames frames;
  if (pictures.frames.empty()) return frames;
  const double base = pictures.frames.front().view.timestampMs;
  Append(pictures, true, base, start, &frames);
  if (audio == AUDIO_CODEC_AAC) Append(sound, false, base, start, &frames);
  if (audio == AUDIO_CODEC_G711_ULAW || audio == AUDIO_CODEC_G711_ALAW) AppendG711(start, 150, &frames);
  std::stable_sort(frames.begin(), frames.end(), [start](const TestFrame& a, const TestFrame& b) {
    return static_cast<std::int32_t>(a.stamp - start) < static_cast<std::int32_t>(b.stamp - start);
  });
  return frames;
}

TestFrames CompleteGroups(const TestFrames& frames) {
  size_t end = frames.size();
  while (end > 0 && !frames[end - 1].isKey) --end;
  return {frames.begin(), frames.begin() + static_cast<std::ptrdiff_t>(end == 0 ? 0 : end - 1)};
}

TestFrames FromZero(const TestFrames& frames) {
  TestFrames result = frames;
  for (TestFrame& frame : result) frame.stamp -= frames.front().stamp;
  return result;
}

TestMuxer::TestMuxer(const std::string& path, VideoCodec videoCodec, AudioCodec audioCodec) {
  const Emp4VideoParams video = {videoCodec, 1280, 720, 25, 60, 0, {}};
  Emp4AudioParams audio = {};
  if (audioCodec == AUDIO_CODEC_AAC) audio = {1, 10, 1024, 8000, 1, {}};
  if (audioCodec == AUDIO_CODEC_G711_ULAW) audio = {1, 11, 320, 8000, 1, {}};
  if (audioCodec == AUDIO_CODEC_G711_ALAW) audio = {1, 12, 320, 8000, 1, {}};
  const Emp4ExtraParams extra = {120, 3789533700u};
  m_muxer = Emp4MuxerOpen(path.c_str(), &video, &audio, &extra);
}

int TestMuxer::Write(const TestFrame& frame) {
  const auto* data = reinterpret_cast<const unsigned char*>(frame.bytes.data());
  const int length = static_cast<int>(frame.bytes.size());
  const int result = frame.isVideo
                         ? Emp4MuxerWriteVideoNALU(m_muxer, frame.isKey ? 1 : 0, data, length, frame.stamp)
                         : Emp4MuxerWriteAudio(m_muxer, data, length, frame.stamp);
  return result != 0 ? result : Emp4MuxerCommit(m_muxer);
}

int TestMuxer::WriteAll(const TestFrames& frames) {
  int result = 0;
  for (const TestFrame& frame : frames) {
    const int written = Write(frame);
    if (result == 0) result = written;
  }
  return result;
}

void TestMuxer::Close() {
  Emp4MuxerClose(m_muxer);
  m_muxer = nullptr;
}

bool TestDemuxer::Read(TestFrame* frame) {
  unsigned char* data = nullptr;
  int type = -1;
  int key = -1;
  unsigned stamp = 0;
  const int length = Emp4DemuxerReadFrame(m_demuxer, &data, &type, &key, &stamp);
  if (length < 0) return false;
  *frame = {type == 0, key == 1, stamp, std::string(reinterpret_cast<char*>(data), static_cast<size_t>(length))};
  return true;
}

TestFrames TestDemuxer::ReadAll() {
  TestFrames frames;
  for (TestFrame frame; Read(&frame);) frames.push_back(frame);
  return frames;
}

std::string OutputOf(const std::string& command) {
  FILE* pipe = popen(("{ " + command + "; } 2>&1 </dev/null").c_str(), "r");
  if (pipe == nullptr) return "popen failed";
  std::string output;
  char buffer[4096];
  for (size_t got = 0; (got = fread(buffer, 1, sizeof(buffer), pipe)) > 0;) output.append(buffer, got);
  const int status = pclose(pipe);
  return status == 0 ? output : output + "exit status " + std::to_string(status);
}

std::string ProbePackets(const std::string& path, const std::string& track) {
  return OutputOf("ffprobe -v warning -select_streams " + track +
                  " -show_entries packet=pts_time,size,flags -of compact=p=0:nk=1 " + path +
                  " | awk -F'|' '{ printf \"%d %d %s\\n\", $2, $1 * 1000 + 0.5, substr($3, 1, 1) }'");
}

std::string ExpectedPackets(const TestFrames& frames, bool isVideo) {
  std::string lines;
  for (const TestFrame& frame : frames) {
    if (frame.isVideo != isVideo) continue;
    const bool isAdts = !isVideo && frame.bytes.size() != 320;
    const bool isKey = frame.isKey || !isVideo;
    lines += std::to_string(frame.bytes.size() - (isAdts ? 7 : 0)) + " " +
             std::to_string(frame.stamp - frames.front().stamp) + (isKey ? " K\n" : " _\n");
  }
  return lines;
}

std::string FfmpegComplaints(const std::string& path) {
  return OutputOf("ffmpeg -nostdin -v warning -xerror -i " + path + " -f null -");
}

std::string TopBoxes(const std::string& bytes) {
  std::string types;
  for (std::uint64_t at = 0; at + 8 <= bytes.size();) {
    const auto number = [&](std::uint64_t from, int count) {
      std::uint64_t value = 0;
      for (int i = 0; i < count; ++i)
        value = value << 8 | static_cast<unsigned char>(bytes[from + static_cast<unsigned>(i)]);
      return value;
    };
    types += bytes.substr(at + 4, 4) + " ";
    const std::uint64_t size = number(at, 4) == 1 ? number(at + 8, 8) : number(at, 4);
    if (size < 8) break;
    at += size;
  }
  return types;
}

}  // namespace record
