// Walking the chunks of an AVI record file that has no index, or whose index shall be checked.
#ifndef FORMAT_AVI_AVI_SCAN_H
#define FORMAT_AVI_AVI_SCAN_H

#include "format/avi/avi_head.h"
#include "format/avi/avi_key_frame.h"
#include "format/frame_scanner.h"
#include "format/frame_totals.h"

namespace record {

struct AviChunks {
  using Head = AviChunkHead;
  // With the head comes what tells a key frame.
  static constexpr long long kLookAt = kAviChunkHeadSize + static_cast<long long>(kKeyFrameBytes);
  static bool MayBegin(const std::uint8_t* word);
  static bool IsHead(const AviChunkHead& chunk) { return AviIsFrame(chunk.id); }
  static long long End(long long offset, const AviChunkHead& chunk) { return AviChunkEnd(offset, chunk.length); }
  // A name alone is little: what follows the frame has to be a frame, the index or the end.
  static bool LooksRight(FileWindow& window, const AviChunkHead& chunk, long long frameEnd, long long fileEnd);
};

struct AviChunk {
  AviIndexEntry entry = {};   // as the index has it
  long long offset = 0;       // of the chunk head in the file
  long long damageFrom = -1;  // where the damage begins that was passed over in front of it
};

class AviScanner {
 public:
  // From the first chunk on up to `end`.
  AviScanner(FileSource& source, const AviHead& head, long long end);

  // The next whole chunk, behind damage, too. False when there is none: at the end, or at an index.
  bool Next(AviChunk& chunk);

  long long DataEnd() const { return m_dataEnd; }  // behind the last one
  bool IsTorn() const {
    return m_scanner.IsTorn();
  }  // after the last one: whether the begin of a chunk stands there

 private:
  bool StandsAtIndex();
  bool IsKey(long long offset, const AviChunkHead& chunk);

  FrameScanner<AviChunks> m_scanner;
  const VideoCodec m_codec;
  const long long m_listStart;
  const long long m_end;
  long long m_dataEnd;
};

// Whether the index, or the padding in front of it, begins there.
bool AviIsIndex(FileWindow& window, long long offset, long long end);

void AviCount(FrameTotals& totals, const AviIndexEntry& entry);
// By the frame rate: there are no time stamps. Milliseconds; 25 frames a second when the rate is 0.
std::uint32_t AviDuration(const FrameTotals& totals, std::uint32_t framerate);

}  // namespace record

#endif
