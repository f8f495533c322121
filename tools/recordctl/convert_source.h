// The frames of a record file with the times that a recording of them has.
#ifndef RECORDCTL_CONVERT_SOURCE_H
#define RECORDCTL_CONVERT_SOURCE_H

#include <memory>
#include <string>

#include "tools/recordctl/decode_order.h"
#include "tools/recordctl/record_file.h"

namespace recordctl {

struct TimedFrame : Frame {
  std::uint32_t stamp = 0;  // milliseconds modulo 2^32: the file's own, or the wall clock when it has none
  long long elapsedMs = 0;  // since the begin of the recording; below 0: from before it
};

class ConvertSource {
 public:
  ConvertSource(const RecordFile& file, long long startMs);

  // `audioType` as the user says, AUDIO_CODEC_NONE for as the file says. False with a message.
  bool Open(const std::string& name, int audioType);
  const RECORD_TASK_PARAM& Media() const { return m_media; }
  const VIDEO_PARAM& Video() const { return m_video; }
  int DurationSeconds() const { return m_opened->GetTimeDuration(); }

  bool Next(TimedFrame& frame);

 private:
  bool SetMedia(bool hasAudio, int audioType);
  std::uint32_t StampOf(const Frame& frame);
  std::uint32_t SoundStamp(std::uint32_t pictureStamp, long bytes);
  void SetOrigin(std::uint32_t stamp);

  const RecordFile m_file;
  const long long m_startMs;
  std::unique_ptr<CVideoFile> m_opened;
  std::unique_ptr<DecodeOrder> m_reader;
  VIDEO_PARAM m_video = {};
  AUDIO_PARAM m_audio = {};
  RECORD_TASK_PARAM m_media = {};
  bool m_hasOrigin = false;
  std::uint32_t m_lastStamp = 0;  // of the frame before, as the file has it
  long long m_wallMs = 0;         // of that frame
  double m_soundMs = -1;          // AVI: where the sound so far ends, by the file's stamps
};

}  // namespace recordctl

#endif
