#include "platform/host/json_text.h"

#include <cstdio>

namespace record {
namespace {

// Length of the UTF-8 sequence at `text`, 0 when there is no well-formed one (RFC 3629). Reads no further
// than the first byte that does not belong.
size_t SequenceLength(const unsigned char* text) {
  const unsigned char lead = text[0];
  if (lead < 0x80) return 1;
  if (lead < 0xc2 || lead > 0xf4) return 0;
  const size_t length = lead < 0xe0 ? 2 : lead < 0xf0 ? 3 : 4;
  // Overlong forms, surrogates and what lies beyond U+10FFFF show in the second byte.
  const unsigned char low = lead == 0xe0 ? 0xa0 : lead == 0xf0 ? 0x90 : 0x80;
  const unsigned char high = lead == 0xed ? 0x9f : lead == 0xf4 ? 0x8f : 0xbf;
  if (text[1] < low || text[1] > high) return 0;
  for (size_t i = 2; i < length; ++i) {
    if ((text[i] & 0xc0) != 0x80) return 0;
  }
  return length;
}

void AppendControl(std::string* out, unsigned char c) {
  char escape[8];
  snprintf(escape, sizeof(escape), "\\u%04x", c);
  *out += escape;
}

}  // namespace

std::string JsonString(const char* text) {
  std::string out = "\"";
  const unsigned char* at = reinterpret_cast<const unsigned char*>(text);
  while (*at != 0) {
    const size_t length = SequenceLength(at);
    if (length == 0) {
      out += "\\ufffd";
    } else if (*at == '"' || *at == '\\') {
      out += '\\';
      out += static_cast<char>(*at);
    } else if (*at < 0x20) {
      AppendControl(&out, *at);
    } else {
      out.append(reinterpret_cast<const char*>(at), length);
    }
    at += length > 0 ? length : 1;
  }
  return out + "\"";
}

}  // namespace record
