// Neighbouring files of one recording share frames: the next file begins with the key frame before its start,
// which the file before still holds. Whoever plays one after the other shows them once.
//
// Where stamps are the stream's own, a file is taken for the continuation of what came before when its time stamps
// are those of the wall clock that named it (within what a recorder looks back) and its first key frame came
// before already, with the same stamp and the same bytes; where key frames were skipped, as at high speeds, the
// stamp alone decides. From there on frames are passed over until the stamps come to what is new. Other files are
// told by their bytes alone.
#ifndef FORMAT_REPEATED_FRAMES_H
#define FORMAT_REPEATED_FRAMES_H

#include <cstdint>
#include <deque>

#include "format/media_file.h"
#include "format/repeated_bytes.h"

namespace record {

class RepeatedFrames {
 public:
  void Forget();                               // after a jump: what came before does not count
  void BeginFile(std::uint32_t startSeconds);  // the frames from now on are another file's, named by that start
  // Whether what came before reaches into the open file: then it is to be read from its begin. After BeginFile().
  bool ReachInto(MediaFile& file);
  // Frames of the file were not read: the next file may begin with one of them.
  void Skipped() { m_hasSkipped = true; }
  bool Take(const MediaFrame& frame);             // whether the frame was in a file before; else it is remembered
  bool IsOfWallClock(std::uint32_t stamp) const;  // whether a stamp is of the clock that named the file

 private:
  struct Anchor {
    std::uint32_t stamp;
    std::uint32_t hash;
    int length;
  };
  struct Medium {
    bool seen = false;
    std::uint32_t last = 0;  // stamp
    bool repeats = false;    // until the file comes to what is new
  };
  bool IsAnchor(const MediaFrame& frame) const { return frame.isVideo ? frame.isKey : !m_video.seen; }
  bool ReachesTo(std::uint32_t stamp) const;  // what came before, to a stamp of this file
  bool ContinuesWith(const MediaFrame& frame, const Anchor& anchor) const;

  std::uint32_t m_startMs = 0;   // of the file, modulo 2^32
  bool m_isUndecided = false;    // no key frame of the file was seen yet
  bool m_hasSkipped = false;     // in this file
  bool m_skippedBefore = false;  // in the file before
  std::deque<Anchor> m_anchors;  // key frames (without video: all frames), the newest ones
  Medium m_video;
  Medium m_audio;
  RepeatedBytes m_bytes;
};

}  // namespace record

#endif
