// Units with a length in front (MP4) to and from units behind start codes (Annex B).
#ifndef PLATFORM_HOST_LENGTH_PREFIX_H
#define PLATFORM_HOST_LENGTH_PREFIX_H

#include "platform/host/annexb.h"

namespace record {

// The units of an access unit, each with its length in four bytes: how many bytes that is, and the bytes,
// appended. Zeros between two units get lost.
size_t SizeWithLengths(const std::vector<CodedUnit>& units);
void AppendWithLengths(const unsigned char* data, const std::vector<CodedUnit>& units, Bytes* out);

// In place: every four-byte length becomes a start code. False when the lengths do not add up.
bool LengthsToStartCodes(unsigned char* data, size_t length);
// The same for lengths of 1 to 4 bytes, into `out`.
bool CopyWithStartCodes(const unsigned char* data, size_t length, size_t lengthSize, Bytes* out);

// Whether every unit stands behind a start code of four bytes and nothing stands in between.
bool HasLongStartCodes(const unsigned char* data, size_t length);
// The units again, behind such start codes.
Bytes WithLongStartCodes(const unsigned char* data, size_t length);

}  // namespace record

#endif
