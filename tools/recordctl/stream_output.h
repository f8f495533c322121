// Frames as they are pushed, written as Matroska or MPEG-TS.
#ifndef RECORDCTL_STREAM_OUTPUT_H
#define RECORDCTL_STREAM_OUTPUT_H

#include <functional>
#include <memory>
#include <string>

#include "record/types.h"

namespace recordctl {

class StreamOutput {
 public:
  // `isEnded`: as for PatientFile.
  explicit StreamOutput(const std::function<bool()>& isEnded);
  ~StreamOutput();  // ends the file
  StreamOutput(const StreamOutput&) = delete;
  StreamOutput& operator=(const StreamOutput&) = delete;

  // "-": standard output. Matroska, or MPEG-TS for a name that ends in ".ts". False with Error(); without one when
  // it was ended.
  bool Open(const std::string& path, const VIDEO_PARAM& video, const AUDIO_PARAM& audio);
  bool IsOpen() const;
  // What is written from now on is like that: pictures that no longer fit fail, sound is left out.
  void Follow(const VIDEO_PARAM& video, const AUDIO_PARAM& audio);
  // Why sound is left out at present; "" when it is not.
  const std::string& WithoutSound() const;
  // Times in milliseconds of playing. False once it cannot be written, with Error(); without one when nobody reads
  // it any more, or it was ended.
  bool WriteVideo(const char* data, unsigned length, long long timeMs, bool isKey);
  bool WriteAudio(const char* data, unsigned length, long long timeMs);
  const std::string& Error() const;

 private:
  struct State;
  std::unique_ptr<State> m_state;
};

}  // namespace recordctl

#endif
