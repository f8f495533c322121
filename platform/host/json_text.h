// Text as JSON wants it.
#ifndef PLATFORM_HOST_JSON_TEXT_H
#define PLATFORM_HOST_JSON_TEXT_H

#include <string>

namespace record {

// `text` as a quoted JSON string. Bytes that are not UTF-8 (names from a card may hold any) each become the
// replacement character.
std::string JsonString(const char* text);

}  // namespace record

#endif
