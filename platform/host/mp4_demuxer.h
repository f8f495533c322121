// Reads an MP4 file frame by frame, while it grows, too.
#ifndef PLATFORM_HOST_MP4_DEMUXER_H
#define PLATFORM_HOST_MP4_DEMUXER_H

#include <memory>
#include <string>

#include "platform/host/mp4_input.h"
#include "record/platform.h"

namespace record {

struct Mp4Frame {
  const unsigned char* data;  // valid until the next call
  bool isVideo;
  bool isKey;
  std::uint32_t stamp;  // milliseconds from the file's begin, when the frame is to be shown
};

class Mp4Demuxer {
 public:
  // Null, with a log line, when the file cannot be read.
  static std::unique_ptr<Mp4Demuxer> Open(const char* path, Emp4VideoParams* video, Emp4AudioParams* audio,
                                          Emp4ExtraParams* extra);

  // The frame's length; negative at the end of what there is.
  int Read(Mp4Frame* frame);
  // 0 or negative.
  int SeekTo(unsigned milliseconds);
  int SeekToPercent(unsigned percent);
  int SeekToNextKey();

 private:
  explicit Mp4Demuxer(const char* path) : m_path(path) {}
  bool Reopen(std::string* error);
  bool Prepare(std::string* error);
  void Describe(Emp4VideoParams* video, Emp4AudioParams* audio, Emp4ExtraParams* extra) const;
  void DescribeSound(Emp4AudioParams* audio) const;

  bool HasGrown() const;
  bool GoOnWhereItGrew();
  bool NextPacket();
  int GoToKey(int number);
  bool ShapePicture(Mp4Frame* frame, int* length);
  bool ShapeSound(Mp4Frame* frame, int* length);
  bool AddMissingSets(const unsigned char** data, size_t* length);

  const std::string m_path;
  std::unique_ptr<Mp4Input> m_input;
  std::unique_ptr<AudioShaper> m_sound;
  VideoCodec m_codec = VIDEO_CODEC_H264;
  Bytes m_sets;             // Annex B
  size_t m_lengthSize = 0;  // of the lengths in front of units; 0: start codes stand there
  AvPacketPtr m_packet;
  bool m_isAtEnd = false;
  bool m_isAtKey = false;         // nothing was read since the last seek
  int m_next[kMp4Tracks] = {};    // number of the next sample of each track
  bool m_skipsDelivered = false;  // samples below m_next were handed out before the file was reopened
  Bytes m_buffer;                 // of the last frame, if it had to be put together
  ShapedFrame m_soundFrame;
};

}  // namespace record

#endif
