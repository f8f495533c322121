// An MP4 file as it stands, opened with libavformat: its tracks and the index of all their samples.
#ifndef PLATFORM_HOST_MP4_INPUT_H
#define PLATFORM_HOST_MP4_INPUT_H

#include <cstdint>
#include <memory>
#include <string>

#include "platform/host/mp4_movie.h"
#include "platform/host/mp4_outline.h"
#include "platform/host/mp4_sample_reader.h"
#include "platform/host/packet_shaper.h"

namespace record {

class Mp4Input {
 public:
  // Null, with the reason in `error`.
  static std::unique_ptr<Mp4Input> Open(const std::string& path, std::string* error);

  // The first H.264 or H.265 track, and the first one with sound that can be handed out; sound may be null.
  const AVStream* Stream(Mp4Track track) const { return m_streams[track]; }
  std::uint64_t FileSize() const { return m_fileSize; }
  // Why there is sound that is left out; empty when there is none of that.
  const std::string& SoundRefusal() const { return m_soundRefusal; }

  // The index of a track: samples are numbered from 0 in the order of decoding, times are in units of the stream.
  int SampleCount(Mp4Track track) const;
  std::int64_t TimeOf(Mp4Track track, int number) const;
  int SizeOf(Mp4Track track, int number) const;
  // The last sample at or before `time`, 0 when there is none before; a key frame's with `keysOnly`.
  int NumberAt(Mp4Track track, std::int64_t time, bool keysOnly) const;
  // The first key frame from `number` on; the count when there is none.
  int NextKey(int number) const;
  // The end of the longest track.
  std::int64_t DurationMs() const;
  // Milliseconds count from the begin of the file, or from the first picture that an edit list hides.
  std::int64_t ToMs(Mp4Track track, std::int64_t time) const;
  std::int64_t FromMs(Mp4Track track, std::int64_t milliseconds) const;

  // Reading goes on with that key frame and what stands beside it. False when that fails.
  bool GoToKey(int number);
  // The next sample as it stands in the file. Its bytes may be changed when they are not shared, and last until
  // the next call. False at the end, or where something is broken or not written yet.
  bool ReadPacket(AVPacket* packet);

 private:
  Mp4Input() = default;
  bool Connect(const std::string& path, std::string* error);
  bool ChooseTracks(std::string* error);
  bool HasPlainEdits(const Mp4Outline& outline, std::string* error) const;
  void SetOrigin();
  bool HasNoOtherTracks() const;
  std::vector<AVStream*> Streams() const;
  void LoadFragments();
  bool SeekContext(int number, bool isRewind);
  std::int64_t EndMs(Mp4Track track) const;

  AvInput m_context;
  std::unique_ptr<Mp4SampleReader> m_samples;  // null: libavformat reads the samples
  AVStream* m_streams[kMp4Tracks] = {};
  std::int64_t m_originMs = 0;
  std::uint64_t m_fileSize = 0;
  std::string m_soundRefusal;
};

}  // namespace record

#endif
