#include "tests/support/fake_mp4.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <memory>

#include "tests/support/device_test.h"

namespace fake {
namespace {

constexpr char kMagic[] = "FAKE MP4";

template <typename Record>
std::string Raw(const Record& record) {
  return {reinterpret_cast<const char*>(&record), sizeof record};
}

template <typename Record>
bool Take(const std::string& bytes, size_t& at, Record& record) {
  if (bytes.size() - at < sizeof record) return false;
  std::memcpy(&record, bytes.data() + at, sizeof record);
  at += sizeof record;
  return true;
}

// Any byte may stand there.
bool Take(const std::string& bytes, size_t& at, bool& flag) {
  unsigned char byte = 0;
  const bool isThere = Take<unsigned char>(bytes, at, byte);
  flag = byte != 0;
  return isThere;
}

std::string FrameRecord(const Mp4Frame& frame) {
  return Raw(frame.video) + Raw(frame.key) + Raw(frame.timestampMs) + Raw(frame.data.size()) + frame.data;
}

bool TakeFrame(const std::string& bytes, size_t& at, Mp4Frame& frame) {
  size_t next = at;
  size_t size = 0;
  if (!Take(bytes, next, frame.video) || !Take(bytes, next, frame.key) || !Take(bytes, next, frame.timestampMs) ||
      !Take(bytes, next, size) || bytes.size() - next < size)
    return false;
  frame.data = bytes.substr(next, size);
  at = next + size;
  return true;
}

bool TakeHead(const std::string& bytes, size_t& at, Mp4Clip& clip) {
  if (bytes.compare(0, sizeof kMagic, kMagic, sizeof kMagic) != 0) return false;
  at = sizeof kMagic;
  return Take(bytes, at, clip.video) && Take(bytes, at, clip.audio) && Take(bytes, at, clip.extra);
}

std::string Text(std::initializer_list<long long> values) {
  std::string text;
  for (const long long value : values) text += (text.empty() ? "" : " ") + std::to_string(value);
  return text;
}

struct Muxer {
  std::ofstream file;
  std::string pending;

  int Write(const Mp4Frame& frame) {
    const int result = Mp4::Get().plan.writeResult;
    if (result == 0) pending += FrameRecord(frame);
    return result;
  }
  void Flush() {
    file << pending << std::flush;
    pending.clear();
  }
};

// The file is read anew with each frame, since it may grow.
struct Demuxer {
  std::string path;
  size_t at = 0;
  Mp4Frame frame;

  bool Next() { return TakeFrame(ReadFile(path), at, frame); }
  // To the last key frame up to `ms`.
  void Seek(unsigned ms) {
    Mp4Clip clip;
    const std::string bytes = ReadFile(path);
    size_t from = 0;
    TakeHead(bytes, from, clip);
    at = from;
    for (Mp4Frame each; TakeFrame(bytes, from, each) && each.timestampMs <= ms;) {
      if (each.video && each.key) at = from - FrameRecord(each).size();
    }
  }
};

}  // namespace

std::string Mp4Bytes(const Mp4Clip& clip) {
  std::string bytes = Raw(kMagic) + Raw(clip.video) + Raw(clip.audio) + Raw(clip.extra);
  for (const Mp4Frame& frame : clip.frames) bytes += FrameRecord(frame);
  return bytes;
}

Mp4Clip ReadMp4(const std::string& path) {
  Mp4Clip clip;
  size_t at = 0;
  const std::string bytes = ReadFile(path);
  if (!TakeHead(bytes, at, clip)) return clip;
  for (Mp4Frame frame; TakeFrame(bytes, at, frame);) clip.frames.push_back(frame);
  return clip;
}

Mp4& Mp4::Get() {
  static Mp4* mp4 = new Mp4;
  return *mp4;
}

void Mp4::Reset() {
  plan = {};
}

}  // namespace fake

using namespace fake;

void* Emp4MuxerOpen(const char* path, const Emp4VideoParams* video, const Emp4AudioParams* audio,
                    const Emp4ExtraParams* extra) {
  Platform::Get().AddCall(
      "Emp4MuxerOpen", path,
      Text({video->codec, video->width, video->height, video->framerate, video->keyframe_interval}),
      Text({audio->enabled, audio->codec, audio->samples_per_frame, audio->samplerate, audio->channels}),
      Text({extra->duration, extra->creation_time}));
  if (Mp4::Get().plan.opensToRefuse-- > 0) return nullptr;
  auto muxer = std::make_unique<Muxer>();
  muxer->file.open(path, std::ios::binary);
  if (!muxer->file) return nullptr;
  muxer->pending = Mp4Bytes({*video, *audio, *extra, {}});
  ++Mp4::Get().handles;
  return muxer.release();
}

int Emp4MuxerWriteVideoNALU(void* muxer, int keyFrame, const unsigned char* data, int length,
                            unsigned timestampMs) {
  const std::string bytes(reinterpret_cast<const char*>(data), static_cast<size_t>(length));
  Platform::Get().AddCall("Emp4MuxerWriteVideoNALU", keyFrame, bytes, timestampMs);
  return static_cast<Muxer*>(muxer)->Write({true, keyFrame != 0, timestampMs, bytes});
}

int Emp4MuxerWriteAudio(void* muxer, const unsigned char* data, int length, unsigned timestampMs) {
  const std::string bytes(reinterpret_cast<const char*>(data), static_cast<size_t>(length));
  Platform::Get().AddCall("Emp4MuxerWriteAudio", bytes, timestampMs);
  return static_cast<Muxer*>(muxer)->Write({false, false, timestampMs, bytes});
}

int Emp4MuxerCommit(void* muxer) {
  Platform::Get().AddCall("Emp4MuxerCommit()");
  static_cast<Muxer*>(muxer)->Flush();
  return Mp4::Get().plan.commitResult;
}

void Emp4MuxerClose(void* muxer) {
  Platform::Get().AddCall("Emp4MuxerClose()");
  const std::unique_ptr<Muxer> closed(static_cast<Muxer*>(muxer));
  closed->Flush();
  --Mp4::Get().handles;
  errno = Mp4::Get().plan.closeError;
}

void* Emp4DemuxerOpen(const char* path, Emp4VideoParams* video, Emp4AudioParams* audio, Emp4ExtraParams* extra) {
  Platform::Get().AddCall("Emp4DemuxerOpen", path);
  auto demuxer = std::make_unique<Demuxer>();
  Mp4Clip clip;
  demuxer->path = path;
  if (!TakeHead(ReadFile(path), demuxer->at, clip)) return nullptr;
  *video = clip.video;
  *audio = clip.audio;
  *extra = clip.extra;
  ++Mp4::Get().handles;
  return demuxer.release();
}

int Emp4DemuxerReadFrame(void* handle, unsigned char** data, int* frameType, int* keyFrame,
                         unsigned* timestampMs) {
  auto& demuxer = *static_cast<Demuxer*>(handle);
  if (!demuxer.Next()) return -7;
  *data = reinterpret_cast<unsigned char*>(demuxer.frame.data.data());
  *frameType = demuxer.frame.video ? 0 : 1;
  *keyFrame = demuxer.frame.key ? 1 : 0;
  *timestampMs = demuxer.frame.timestampMs;
  return static_cast<int>(demuxer.frame.data.size());
}

int Emp4DemuxerSeek(void* demuxer, unsigned milliseconds) {
  Platform::Get().AddCall("Emp4DemuxerSeek", milliseconds);
  const int result = Mp4::Get().plan.seekResult;
  if (result == 0) static_cast<Demuxer*>(demuxer)->Seek(milliseconds);
  return result;
}

int Emp4DemuxerSeekByPercent(void* handle, unsigned percent) {
  Platform::Get().AddCall("Emp4DemuxerSeekByPercent", percent);
  const int result = Mp4::Get().plan.seekResult;
  auto& demuxer = *static_cast<Demuxer*>(handle);
  const std::vector<Mp4Frame> frames = ReadMp4(demuxer.path).frames;
  if (result == 0 && !frames.empty()) demuxer.Seek(frames.back().timestampMs / 100 * percent);
  return result;
}

int Emp4DemuxerSeekToNextKey(void* handle) {
  Platform::Get().AddCall("Emp4DemuxerSeekToNextKey()");
  auto& demuxer = *static_cast<Demuxer*>(handle);
  size_t before = demuxer.at;
  while (demuxer.Next() && !(demuxer.frame.video && demuxer.frame.key)) before = demuxer.at;
  demuxer.at = before;
  return 0;
}

void Emp4DemuxerClose(void* demuxer) {
  Platform::Get().AddCall("Emp4DemuxerClose()");
  delete static_cast<Demuxer*>(demuxer);
  --Mp4::Get().handles;
}
