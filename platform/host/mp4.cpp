// The MP4 names of the platform: handles to objects, and nothing thrown across.
#include <cerrno>
#include <exception>
#include <new>

#include "platform/host/mp4_demuxer.h"
#include "platform/host/mp4_muxer.h"

namespace {

using record::Mp4Demuxer;
using record::Mp4Muxer;

// What `call` makes of the object behind a handle; a negative errno when there is none or memory ran out.
template <typename Object, typename Call>
int On(void* handle, const Call& call) {
  if (handle == nullptr) return -EINVAL;
  try {
    return call(*static_cast<Object*>(handle));
  } catch (const std::bad_alloc&) {
    return -ENOMEM;
  } catch (const std::exception&) {
    return -EIO;
  }
}

template <typename Make>
void* HandleOf(const Make& make) {
  try {
    return make().release();
  } catch (const std::exception&) {
    errno = ENOMEM;
    return nullptr;
  }
}

}  // namespace

void* Emp4MuxerOpen(const char* path, const Emp4VideoParams* video, const Emp4AudioParams* audio,
                    const Emp4ExtraParams* extra) {
  if (path == nullptr || video == nullptr) return nullptr;
  return HandleOf([&] { return Mp4Muxer::Open(path, *video, audio, extra); });
}

int Emp4MuxerWriteVideoNALU(void* muxer, int keyFrame, const unsigned char* data, int length,
                            unsigned int timestampMs) {
  if (data == nullptr || length <= 0) return -EINVAL;
  return On<Mp4Muxer>(muxer, [&](Mp4Muxer& m) { return m.WriteVideo(keyFrame != 0, data, length, timestampMs); });
}

int Emp4MuxerWriteAudio(void* muxer, const unsigned char* data, int length, unsigned int timestampMs) {
  if (data == nullptr || length <= 0) return -EINVAL;
  return On<Mp4Muxer>(muxer, [&](Mp4Muxer& m) { return m.WriteAudio(data, length, timestampMs); });
}

int Emp4MuxerCommit(void* muxer) {
  return On<Mp4Muxer>(muxer, [](Mp4Muxer& m) { return m.Commit(); });
}

void Emp4MuxerClose(void* muxer) {
  const int finished = muxer == nullptr ? 0 : On<Mp4Muxer>(muxer, [](Mp4Muxer& m) { return m.Finish(); });
  delete static_cast<Mp4Muxer*>(muxer);
  errno = -finished;
}

void* Emp4DemuxerOpen(const char* path, Emp4VideoParams* video, Emp4AudioParams* audio, Emp4ExtraParams* extra) {
  if (path == nullptr || video == nullptr || audio == nullptr || extra == nullptr) return nullptr;
  return HandleOf([&] { return Mp4Demuxer::Open(path, video, audio, extra); });
}

int Emp4DemuxerReadFrame(void* demuxer, unsigned char** data, int* frameType, int* keyFrame,
                         unsigned int* timestampMs) {
  return On<Mp4Demuxer>(demuxer, [&](Mp4Demuxer& d) {
    record::Mp4Frame frame;
    const int length = d.Read(&frame);
    if (length < 0) return length;
    *data = const_cast<unsigned char*>(frame.data);
    *frameType = frame.isVideo ? 0 : 1;
    *keyFrame = frame.isKey ? 1 : 0;
    *timestampMs = frame.stamp;
    return length;
  });
}

int Emp4DemuxerSeek(void* demuxer, unsigned int milliseconds) {
  return On<Mp4Demuxer>(demuxer, [&](Mp4Demuxer& d) { return d.SeekTo(milliseconds); });
}

int Emp4DemuxerSeekByPercent(void* demuxer, unsigned int percent) {
  return On<Mp4Demuxer>(demuxer, [&](Mp4Demuxer& d) { return d.SeekToPercent(percent); });
}

int Emp4DemuxerSeekToNextKey(void* demuxer) {
  return On<Mp4Demuxer>(demuxer, [](Mp4Demuxer& d) { return d.SeekToNextKey(); });
}

void Emp4DemuxerClose(void* demuxer) {
  delete static_cast<Mp4Demuxer*>(demuxer);
}
