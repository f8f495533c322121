// The one timeline of an output: where each frame of one file after the other belongs, and whether it is new.
//
// A file begins where its name says. When its stamps are of the wall clock, that tells to the millisecond; when it
// begins with pictures that were written already, these do. Gaps stay gaps; time never runs backwards.
#ifndef EXPORT_TIMELINE_H
#define EXPORT_TIMELINE_H

#include <cstdint>

#include "export/gap_list.h"
#include "export/sound_pace.h"
#include "format/frame_tail.h"
#include "format/media_file.h"
#include "format/repeated_frames.h"
#include "record/types.h"

namespace record {

class ExportTimeline {
 public:
  struct File {
    long long startMs;     // by its name, milliseconds since 1970
    bool hasStreamStamps;  // else they count from the begin of the file
    bool hasSoundStamps;   // else sound bears the stamp of the picture before it
    unsigned framerate;    // 0: not known
    AUDIO_PARAM audio;
  };
  void BeginFile(const File& file);

  // Whether the frame is to be written; then its time is known. Nothing is before the first key frame.
  bool Place(const MediaFrame& frame);
  long long TimeMs() const { return m_timeMs; }  // of the frame placed last, since 1970
  std::uint32_t Timestamp() const { return static_cast<std::uint32_t>(m_timeMs - m_originMs); }
  bool HasBegun() const { return m_hasBegun; }

  const GapList& Gaps() const { return m_gaps; }  // between pictures

 private:
  bool PlacePicture(const MediaFrame& frame);
  bool PlaceSound(const MediaFrame& frame);
  void TakeFirst(const MediaFrame& frame);
  void Join(const MediaFrame& key);
  bool WasWritten(const MediaFrame& frame);
  long long Forward(long long timeMs);
  void Advance(const MediaFrame& frame, long long timeMs);
  long long PlaceOf(const MediaFrame& frame) const;

  bool m_hasBegun = false;
  long long m_originMs = 0;
  long long m_timeMs = 0;
  long long m_pictureMs = 0;  // written last
  long long m_soundMs = 0;
  RepeatedFrames m_repeated;
  FrameTail m_tail;
  SoundPace m_pace;
  GapList m_gaps;

  // Of the file at hand.
  File m_file = {};
  bool m_hasFirst = false;
  std::uint32_t m_firstStamp = 0;
  long long m_baseMs = 0;   // of the first stamp
  bool m_isExact = false;   // the base is true to the millisecond
  bool m_isJoined = false;  // its first key frame has been seen
  bool m_matches = false;   // its pictures are those of the tail, so far
  bool m_needsKey = true;
  long long m_writtenToMs = 0;  // pictures up to there are in the output already
  long long m_soundWrittenToMs = 0;
};

}  // namespace record

#endif
