// What an MP4 file's boxes claim, before libavformat believes it: it makes room for as many samples as a table
// tells, and reads edit lists in ways that do not suit recordings.
#ifndef PLATFORM_HOST_MP4_OUTLINE_H
#define PLATFORM_HOST_MP4_OUTLINE_H

#include <cstdint>
#include <string>
#include <vector>

namespace record {

struct Mp4Outline {
  std::string refusal;  // why libavformat is not let at it; empty: it is
  bool hasFragments = false;
  bool isReordered = false;           // samples of a table may be shown at other times than they are decoded
  std::vector<std::uint32_t> joined;  // numbers of the tracks whose edit lists join several parts of the media

  bool IsJoined(std::uint32_t track) const;
};

// `size`: what of the file counts.
Mp4Outline ReadMp4Outline(int file, std::uint64_t size);

}  // namespace record

#endif
