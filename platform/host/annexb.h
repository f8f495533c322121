// Annex B byte streams and MPEG-4 start codes: finding the units that configure a decoder.
#ifndef PLATFORM_HOST_ANNEXB_H
#define PLATFORM_HOST_ANNEXB_H

#include <cstddef>
#include <vector>

#include "record/types.h"

namespace record {

using Bytes = std::vector<unsigned char>;

// A unit behind a start code 00 00 01; `offset` is that of the start code with the zero before it, if any.
struct CodedUnit {
  size_t offset;
  size_t payload;  // offset of the first byte behind the start code
  size_t end;
};

// The first unit at or behind `from`; false when there is none. Units without a byte are passed over.
bool FindUnit(const unsigned char* data, size_t length, size_t from, CodedUnit* unit);
// All of them, in place of what `units` holds.
void FindUnits(const unsigned char* data, size_t length, std::vector<CodedUnit>* units);

// What an access unit holds of the sets (or the VOL header) that a decoder needs first.
struct DecoderSets {
  Bytes bytes;                // with four-byte start codes (MPEG-4: as found)
  bool complete = false;      // every kind that the codec has is there
  bool inFront = false;       // nothing but an access unit delimiter comes before them
  size_t insertionPoint = 0;  // where sets would have to be put in: behind an access unit delimiter
};

DecoderSets FindDecoderSets(VideoCodec codec, const unsigned char* data, size_t length);

}  // namespace record

#endif
