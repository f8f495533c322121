#include "format/avi/avi_key_frame.h"

#include <algorithm>
#include <cstring>

#include "record/video_file.h"

namespace record {
namespace {

constexpr std::uint8_t kMpeg4Picture = 0xb6;
constexpr std::uint8_t kMpeg4PictureType = 0xc0;  // 0: it leans on no other

// The first byte behind the start code at or behind `from`; `length` when there is none.
std::size_t NextUnit(const std::uint8_t* data, std::size_t length, std::size_t from) {
  for (std::size_t at = from; at + 3 < length; ++at) {
    if (data[at] == 0 && data[at + 1] == 0 && data[at + 2] == 1) return at + 3;
  }
  return length;
}

// Encoders put a VOL header of fixed length in front, or any other headers.
bool IsMpeg4Key(const std::uint8_t* data, std::size_t length) {
  if (length > 22 && data[3] == 1 && data[21] == kMpeg4Picture && (data[22] & kMpeg4PictureType) == 0) return true;
  std::size_t unit = NextUnit(data, length, 0);
  while (unit + 1 < length && data[unit] != kMpeg4Picture) unit = NextUnit(data, length, unit);
  return unit + 1 < length && (data[unit + 1] & kMpeg4PictureType) == 0;
}

// Delimiters and messages say nothing about the picture behind them.
template <typename SaysNothing>
std::size_t TellingUnit(const std::uint8_t* data, std::size_t length, SaysNothing saysNothing) {
  std::size_t unit = NextUnit(data, std::min<std::size_t>(length, 5), 0);
  if (unit > 4 || unit >= length) return length;
  while (unit < length && saysNothing(data[unit])) unit = NextUnit(data, length, unit);
  return unit;
}

bool IsH264Key(const std::uint8_t* data, std::size_t length) {
  const std::size_t unit = TellingUnit(data, length, [](std::uint8_t first) {
    const int type = first & 31;
    return type == 6 || type == 9;
  });
  if (length < 7 || unit + 1 >= length) return false;
  // Wherever the unit stands and however long its start code is, it is judged by the same rule.
  std::uint8_t front[7] = {0, 0, 0, 1};
  std::memcpy(front + 4, data + unit, std::min<std::size_t>(length - unit, 3));
  return IsH264KeyFrame(front, sizeof front) != 0;
}

bool IsH265Key(const std::uint8_t* data, std::size_t length) {
  const auto typeOf = [](std::uint8_t first) { return first >> 1 & 63; };
  const std::size_t unit = TellingUnit(data, length, [typeOf](std::uint8_t first) {
    const int type = typeOf(first);
    return type == 35 || type == 39;
  });
  if (unit >= length) return false;
  const int type = typeOf(data[unit]);
  return (type >= 16 && type <= 21) || (type >= 32 && type <= 34);  // random access points, parameter sets
}

}  // namespace

bool IsKeyFrame(VideoCodec codec, const std::uint8_t* data, std::size_t length) {
  length = std::min(length, kKeyFrameBytes);
  if (codec == VIDEO_CODEC_MPEG4) return IsMpeg4Key(data, length);
  return codec == VIDEO_CODEC_H265 ? IsH265Key(data, length) : IsH264Key(data, length);
}

}  // namespace record

int IsH264KeyFrame(const unsigned char* data, int length) {
  constexpr unsigned char kStartCode[] = {0, 0, 0, 1};
  if (length < 7 || std::memcmp(data, kStartCode, sizeof kStartCode) != 0) return 0;
  const int type = data[4] & 31;
  if (type == 5 || type == 7 || type == 8) return 1;
  // The first bits of a slice of an intra picture.
  return type == 1 && (data[5] == 0x88 || (data[5] & 0xb0) == 0xb0 || (data[5] & 0x4c) == 0x4c) ? 1 : 0;
}
