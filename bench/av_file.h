// The same frames through libavformat.
#ifndef BENCH_AV_FILE_H
#define BENCH_AV_FILE_H

extern "C" {
#include <libavformat/avformat.h>
}

#include <map>
#include <string>

#include "bench/clip.h"

namespace bench {

enum class AvFlush {
  kBuffered,          // as libavformat does by default
  kFragments,         // a fragment is in the file when the muxer has let go of it
  kEveryFrame,        // a frame that was written is in the file
  kEveryFrameDirect,  // the same without libavformat's interleaving: the caller's order is trusted
};

// A file being written. Ends the program when libavformat refuses.
class AvWriter {
 public:
  // `format` is libavformat's name of the muxer, `flags` its private "movflags" or "".
  AvWriter(const std::string& path, const std::string& format, const std::string& flags, AvFlush flush);
  ~AvWriter();  // finishes the file
  AvWriter(const AvWriter&) = delete;
  AvWriter& operator=(const AvWriter&) = delete;

  void Write(const Frame& frame);

 private:
  AVStream* AddVideo();
  AVStream* AddAudio();

  AVFormatContext* m_context = nullptr;
  AVPacket* m_packet;
  AVStream* m_video;
  AVStream* m_audio;
  AvFlush m_flush;
};

// A file being read, without looking into the streams first.
class AvReader {
 public:
  explicit AvReader(const std::string& path);
  ~AvReader();
  AvReader(const AvReader&) = delete;
  AvReader& operator=(const AvReader&) = delete;

  // The next frame, valid until the next call; null at the end.
  const AVPacket* Read();
  const AVPacket* ReadVideo();
  void Seek(int second);

 private:
  AVFormatContext* m_context = nullptr;
  AVPacket* m_packet;
};

// A finished file of the whole clip.
void MakeAvFile(const std::string& format, const std::string& flags, const std::string& path, const Clip& clip);

}  // namespace bench

#endif
