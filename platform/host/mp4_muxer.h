// Writes one MP4 file: frames are gathered to a group of pictures, each group is one fragment, and closing turns
// the fragments into an ordinary file (mp4_movie.h). One fragment stands in memory, and the tables of all of them,
// within bounds: a file that would need more stays in fragments.
#ifndef PLATFORM_HOST_MP4_MUXER_H
#define PLATFORM_HOST_MP4_MUXER_H

#include <memory>
#include <optional>
#include <vector>

#include "platform/host/mp4_output_file.h"
#include "platform/host/mp4_sample_description.h"
#include "platform/host/mp4_timeline.h"
#include "record/platform.h"

namespace record {

class Mp4Muxer {
 public:
  static constexpr size_t kMostTables = 16 << 20;  // bytes

  // Null, with errno set, when the file cannot be made or the parameters are none of ours.
  static std::unique_ptr<Mp4Muxer> Open(const char* path, const Emp4VideoParams& video,
                                        const Emp4AudioParams* audio, const Emp4ExtraParams* extra,
                                        size_t mostTables = kMostTables);

  // 0 or a negative errno: the frame is not in the file. Throws when memory runs out: the frame is not in the file
  // either, and what was accepted before stays as it is. REQUIRES: length > 0.
  int WriteVideo(bool isKey, const unsigned char* data, int length, std::uint32_t stamp);
  int WriteAudio(const unsigned char* data, int length, std::uint32_t stamp);
  // 0, or the negative errno of a group that could not be written since the last call.
  int Commit();
  // Writes what is still held and makes it an ordinary file. A power cut in between, or a medium without room for
  // the index, leaves the fragments readable. 0 or a negative errno: something is missing, or not on the medium.
  int Finish();

 private:
  enum class Sound { None, Ulaw, Alaw, Aac };
  struct Pending {
    FragmentSample sample;  // time and duration are filled in when the group is written
    std::int64_t place;     // milliseconds since the first frame
  };

  Mp4Muxer(const Emp4VideoParams& video, const Emp4ExtraParams* extra, size_t mostTables);
  bool SetSound(const Emp4AudioParams& audio);

  bool LearnVideo(const unsigned char* keyFrame, int length);
  void LearnAac(const AacConfig& config);
  int WriteG711(const unsigned char* data, int length, std::uint32_t stamp);
  int TakePicture(bool isKey, const unsigned char* data, size_t length, std::uint32_t stamp);
  int WriteAac(const unsigned char* data, int length, std::uint32_t stamp);
  int AddAudio(const unsigned char* data, size_t length, std::uint32_t stamp, std::uint32_t duration);
  void Add(Mp4Track track, bool isKey, size_t size, std::int64_t place, std::uint32_t duration);
  void TakeDown(const std::vector<FragmentSample>& samples, std::uint64_t offset);
  void StayInFragments(const char* why);

  bool HasVideoPending() const;
  bool IsFull(size_t more, std::int64_t place) const;
  bool MakeRoom(size_t more, std::int64_t place);  // false: what was held had to be given up
  int WriteHead(bool must);
  void SetTimes(std::optional<std::int64_t> nextPicture);
  std::vector<FragmentSample> PendingSamples() const;
  int WriteFragment();
  // `nextPicture`: the place of the frame that comes behind the group, if it is known.
  void Flush(std::optional<std::int64_t> nextPicture);
  void GiveUpPending();
  int WriteIndex();

  // Constant after Open.
  const size_t m_mostTables;
  VideoCodec m_codec;
  PictureSize m_configuredSize;
  std::uint32_t m_frameMs;  // nominal distance of two pictures
  Sound m_sound = Sound::None;
  int m_samplerate = 0;
  int m_channels = 0;

  Mp4OutputFile m_file;
  MovieDescription m_movie;
  std::optional<AacConfig> m_aac;
  bool m_hasHead = false;
  std::uint32_t m_fragments = 0;
  SampleTable m_tables[kMp4Tracks];
  bool m_hasTables = true;  // false: they are given up, the file stays in fragments

  StampLine m_line;
  TrackClock m_clocks[kMp4Tracks];
  std::optional<std::int64_t> m_origin;  // the place that is time 0

  std::vector<CodedUnit> m_units;  // of the picture at hand
  std::vector<Pending> m_pending;
  size_t m_timed = 0;  // of m_pending, whose times are set
  Bytes m_media;       // of m_pending
  bool m_needsKey = true;
  bool m_isStuck = false;  // the group could not be written; it waits for the next key frame
  int m_error = 0;         // for Commit
};

}  // namespace record

#endif
