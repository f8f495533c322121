// Frames that neighbouring files share, told by their bytes: for files whose stamps count from their own begin.
//
// A file goes on with what came before when its first key frame came before already, near the time that its name
// tells. From there on its pictures, and its sound, are passed over for as long as they are among what came
// before.
#ifndef FORMAT_REPEATED_BYTES_H
#define FORMAT_REPEATED_BYTES_H

#include <cstdint>

#include "format/frame_tail.h"
#include "format/media_file.h"

namespace record {

class RepeatedBytes {
 public:
  void Forget();  // after a jump: what came before does not count
  // `skipped`: not all frames of the file before were read. Then time decides about what is not found.
  void BeginFile(std::uint32_t startSeconds, bool skipped);
  bool ReachInto(MediaFile& file);     // whether its first frame came before
  bool Take(const MediaFrame& frame);  // whether the frame came before; else it is remembered

 private:
  struct Medium {
    FrameTail tail;
    bool isUndecided = false;  // no frame of the file was looked for yet
    bool matches = false;
    bool isBehind = false;  // not all before was read, and the file may begin ahead of its end
    long long untilMs = 0;  // the end of what came before
  };
  bool IsRepeated(Medium& medium, const MediaFrame& frame, long long timeMs);
  void Look(Medium& medium, const MediaFrame& frame, long long timeMs);
  long long TimeOf(const MediaFrame& frame) const { return m_baseMs + frame.offsetMs; }

  long long m_baseMs = 0;  // of the file's begin, on the timeline of what came before
  Medium m_video;
  Medium m_audio;
};

}  // namespace record

#endif
