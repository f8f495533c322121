#include "platform/host/length_prefix.h"

namespace record {
namespace {

constexpr unsigned char kStartCode[] = {0, 0, 0, 1};
constexpr size_t kLengthSize = 4;

// Calls `take` with offset and length of every unit; false when the lengths do not add up. A unit without a byte
// is damage, too: zeros are what a power cut leaves where data should be.
template <typename Take>
bool ForEachUnit(const unsigned char* data, size_t length, size_t lengthSize, const Take& take) {
  for (size_t at = 0; at < length;) {
    if (length - at < lengthSize) return false;
    size_t unit = 0;
    for (size_t i = 0; i < lengthSize; ++i) unit = unit << 8 | data[at + i];
    at += lengthSize;
    if (unit == 0 || unit > length - at) return false;
    take(at, unit);
    at += unit;
  }
  return true;
}

}  // namespace

size_t SizeWithLengths(const std::vector<CodedUnit>& units) {
  size_t size = 0;
  for (const CodedUnit& unit : units) size += kLengthSize + unit.end - unit.payload;
  return size;
}

void AppendWithLengths(const unsigned char* data, const std::vector<CodedUnit>& units, Bytes* out) {
  for (const CodedUnit& unit : units) {
    const size_t size = unit.end - unit.payload;
    for (int shift = 24; shift >= 0; shift -= 8) out->push_back(static_cast<unsigned char>(size >> shift));
    out->insert(out->end(), data + unit.payload, data + unit.end);
  }
}

bool LengthsToStartCodes(unsigned char* data, size_t length) {
  return ForEachUnit(data, length, sizeof(kStartCode), [&](size_t at, size_t) {
    for (size_t i = 0; i < sizeof(kStartCode); ++i) data[at - sizeof(kStartCode) + i] = kStartCode[i];
  });
}

bool CopyWithStartCodes(const unsigned char* data, size_t length, size_t lengthSize, Bytes* out) {
  out->clear();
  return ForEachUnit(data, length, lengthSize, [&](size_t at, size_t unit) {
    out->insert(out->end(), kStartCode, kStartCode + sizeof(kStartCode));
    out->insert(out->end(), data + at, data + at + unit);
  });
}

bool HasLongStartCodes(const unsigned char* data, size_t length) {
  size_t at = 0;
  for (CodedUnit unit; FindUnit(data, length, at, &unit); at = unit.end) {
    if (unit.offset != at || unit.payload - unit.offset != sizeof(kStartCode)) return false;
  }
  return true;
}

Bytes WithLongStartCodes(const unsigned char* data, size_t length) {
  Bytes bytes;
  bytes.reserve(length + 64);
  CodedUnit unit;
  for (size_t at = 0; FindUnit(data, length, at, &unit); at = unit.end) {
    bytes.insert(bytes.end(), kStartCode, kStartCode + sizeof(kStartCode));
    bytes.insert(bytes.end(), data + unit.payload, data + unit.end);
  }
  return bytes;
}

}  // namespace record
