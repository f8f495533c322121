// The two kinds of files that exports write.
#ifndef EXPORT_CLIP_WRITER_H
#define EXPORT_CLIP_WRITER_H

#include <cstdint>
#include <string>

#include "export/output_name.h"
#include "export/output_room.h"
#include "record/export.h"
#include "record/platform.h"

namespace record {

// The sound that a reader reports, as the multiplexer numbers it; 0: none that it can hold.
int TrackAudioCodec(const AUDIO_PARAM& audio);
// The pictures' VideoCodec, by any reader's name for it.
int TrackVideoCodec(const VIDEO_PARAM& video);

struct ClipFrame {
  const unsigned char* data;
  int length;
  bool isVideo;
  bool isKey;
  std::uint32_t timestampMs;
};

// What both kinds have: a name, the parameters of the first file, and how much was written.
class ClipWriter {
 public:
  ClipWriter(const std::string& path, OutputName::Old old) : m_name(path, old) {}
  virtual ~ClipWriter() = default;
  ClipWriter(const ClipWriter&) = delete;
  ClipWriter& operator=(const ClipWriter&) = delete;

  void SetParams(const VIDEO_PARAM& video, const AUDIO_PARAM& audio);
  bool HasParams() const { return m_hasParams; }
  const VIDEO_PARAM& Video() const { return m_video; }
  const AUDIO_PARAM& Audio() const { return m_audio; }

  // Opens the file with the first frame; nothing is written before the parameters are known. 0, or what failed.
  virtual int Write(const ClipFrame& frame) = 0;
  // Closes the file and, when all of it was written, gives it its name. 0; -1 when no file is open or the file
  // did not reach the medium.
  int Close();

  bool HasFailed() const { return m_failed; }
  int Error() const { return m_error; }  // errno of the failure, when it is known
  unsigned VideoFrames() const { return m_videoFrames; }
  unsigned AudioFrames() const { return m_audioFrames; }
  unsigned long long Bytes() const { return m_bytes; }
  const OutputName& Name() const { return m_name; }

 protected:
  virtual bool IsOpen() const = 0;
  virtual int CloseFile() = 0;  // 0, or an errno
  void Count(const ClipFrame& frame);
  int Fail(int result, int error);  // returns `result`

  OutputName m_name;

 private:
  bool m_hasParams = false;
  VIDEO_PARAM m_video = {};
  AUDIO_PARAM m_audio = {};
  bool m_failed = false;
  int m_error = 0;
  unsigned m_videoFrames = 0;
  unsigned m_audioFrames = 0;
  unsigned long long m_bytes = 0;
};

// An MP4 file by the platform's multiplexer.
class Mp4Clip : public ClipWriter {
 public:
  struct Settings {
    unsigned seconds;         // the length that the file is meant to get
    bool hasAudio;            // false: pictures only
    unsigned framerate;       // 0: that of the pictures
    unsigned sourceInterval;  // milliseconds between two pictures of a time lapse, for the log; 0: none
  };
  Mp4Clip(const std::string& path, const Settings& settings)
      : ClipWriter(path, OutputName::Old::kReplaced), m_settings(settings) {}
  ~Mp4Clip() override;

  int Write(const ClipFrame& frame) override;
  bool HasAudioTrack() const { return m_hasAudioTrack; }  // known once the file is open

 private:
  bool IsOpen() const override { return m_muxer != nullptr; }
  int CloseFile() override;
  int Open();
  void LogOpening(int codec, unsigned framerate) const;
  Emp4AudioParams AudioTrack();
  int WriteFrame(const ClipFrame& frame);

  const Settings m_settings;
  void* m_muxer = nullptr;
  OutputRoom m_room;
  bool m_hasAudioTrack = false;
};

// Frames back to back, nothing else.
class DatClip : public ClipWriter {
 public:
  DatClip(const std::string& path, OutputName::Old old) : ClipWriter(path, old) {}
  ~DatClip() override;
  int Write(const ClipFrame& frame) override;

 private:
  bool IsOpen() const override { return m_file >= 0; }
  int CloseFile() override;
  int Open();

  int m_file = -1;
};

}  // namespace record

#endif
