#include "platform/host/annexb.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace record {
namespace {

constexpr size_t kBlock = 64;

// The first place from `from` on that lies less than a block and a byte before the end, or behind which two zeros
// in a row begin within a block. Every start code begins with two, and little else holds them.
#if defined(__SSE2__) || defined(__ARM_NEON)
using Lanes = unsigned char __attribute__((vector_size(16)));

// All bits of those of 16 places behind which two zeros begin.
Lanes ZeroPairs(const unsigned char* data) {
  Lanes first, second;
  std::memcpy(&first, data, sizeof first);
  std::memcpy(&second, data + 1, sizeof second);
  return reinterpret_cast<Lanes>((first | second) == 0);
}

size_t PassBlocks(const unsigned char* data, size_t length, size_t from) {
  for (; from + kBlock < length; from += kBlock) {
    const unsigned char* const at = data + from;
    const Lanes pairs = (ZeroPairs(at) | ZeroPairs(at + 16)) | (ZeroPairs(at + 32) | ZeroPairs(at + 48));
    std::uint64_t halves[2];
    std::memcpy(halves, &pairs, sizeof halves);
    if ((halves[0] | halves[1]) != 0) break;
  }
  return from;
}
#else
size_t PassBlocks(const unsigned char*, size_t, size_t from) {
  return from;
}
#endif

// Offset of the next 00 00 01, or `length`.
size_t FindStartCode(const unsigned char* data, size_t length, size_t from) {
  while (from + 3 <= length) {
    from = PassBlocks(data, length, from);
    const size_t end = std::min(length, from + kBlock + 2);
    for (size_t next = from + 2; next < end;) {
      const void* one = memchr(data + next, 1, end - next);
      if (one == nullptr) break;
      const size_t at = static_cast<size_t>(static_cast<const unsigned char*>(one) - data);
      if (data[at - 1] == 0 && data[at - 2] == 0) return at - 2;
      next = at + 1;
    }
    from = end - 2;
  }
  return length;
}

enum class UnitKind { Other, Delimiter, VideoSet, SequenceSet, PictureSet };

UnitKind KindOf(VideoCodec codec, unsigned char head) {
  if (codec == VIDEO_CODEC_H264) {
    switch (head & 0x1f) {
      case 7:
        return UnitKind::SequenceSet;
      case 8:
        return UnitKind::PictureSet;
      case 9:
        return UnitKind::Delimiter;
      default:
        return UnitKind::Other;
    }
  }
  switch (head >> 1 & 0x3f) {
    case 32:
      return UnitKind::VideoSet;
    case 33:
      return UnitKind::SequenceSet;
    case 34:
      return UnitKind::PictureSet;
    case 35:
      return UnitKind::Delimiter;
    default:
      return UnitKind::Other;
  }
}

DecoderSets FindParameterSets(VideoCodec codec, const unsigned char* data, size_t length) {
  static constexpr unsigned char kStartCode[] = {0, 0, 0, 1};
  DecoderSets sets;
  bool video = codec == VIDEO_CODEC_H264;
  bool sequence = false;
  bool picture = false;
  bool othersSeen = false;
  CodedUnit unit;
  for (size_t at = 0; FindUnit(data, length, at, &unit); at = unit.end) {
    const UnitKind kind = KindOf(codec, data[unit.payload]);
    if (kind == UnitKind::Delimiter && unit.offset == 0) sets.insertionPoint = unit.end;
    othersSeen = othersSeen || kind == UnitKind::Other;
    if (kind == UnitKind::Other || kind == UnitKind::Delimiter) continue;
    sets.inFront = !othersSeen;
    video = video || kind == UnitKind::VideoSet;
    sequence = sequence || kind == UnitKind::SequenceSet;
    picture = picture || kind == UnitKind::PictureSet;
    sets.bytes.insert(sets.bytes.end(), kStartCode, kStartCode + sizeof(kStartCode));
    sets.bytes.insert(sets.bytes.end(), data + unit.payload, data + unit.end);
  }
  sets.complete = video && sequence && picture;
  return sets;
}

// The VOL header is everything from the first start code up to the first picture or group of pictures.
DecoderSets FindVolHeader(const unsigned char* data, size_t length) {
  constexpr unsigned char kGroup = 0xb3;
  constexpr unsigned char kPicture = 0xb6;
  DecoderSets sets;
  size_t headEnd = length;
  CodedUnit unit;
  for (size_t at = 0; FindUnit(data, length, at, &unit); at = unit.end) {
    const unsigned char code = data[unit.payload];
    if (code == kGroup || code == kPicture) {
      headEnd = unit.payload - 3;
      break;
    }
    sets.complete = sets.complete || (code >= 0x20 && code <= 0x2f);
  }
  sets.inFront = sets.complete;
  if (sets.complete) sets.bytes.assign(data, data + headEnd);
  return sets;
}

}  // namespace

bool FindUnit(const unsigned char* data, size_t length, size_t from, CodedUnit* unit) {
  for (size_t start = FindStartCode(data, length, from); start < length;) {
    const size_t payload = start + 3;
    const size_t next = FindStartCode(data, length, payload);
    size_t end = next;
    while (next < length && end > payload && data[end - 1] == 0) --end;
    if (end > payload) {
      unit->offset = start > from && data[start - 1] == 0 ? start - 1 : start;
      unit->payload = payload;
      unit->end = end;
      return true;
    }
    start = next;
  }
  return false;
}

void FindUnits(const unsigned char* data, size_t length, std::vector<CodedUnit>* units) {
  units->clear();
  CodedUnit unit;
  for (size_t at = 0; FindUnit(data, length, at, &unit); at = unit.end) units->push_back(unit);
}

DecoderSets FindDecoderSets(VideoCodec codec, const unsigned char* data, size_t length) {
  return codec == VIDEO_CODEC_MPEG4 ? FindVolHeader(data, length) : FindParameterSets(codec, data, length);
}

}  // namespace record
