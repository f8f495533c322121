// Texts, where the standard library has no word for it.
#ifndef BASE_TEXT_H
#define BASE_TEXT_H

#include <string_view>

namespace record {

inline bool EndsWith(std::string_view text, std::string_view end) {
  return text.size() >= end.size() && text.substr(text.size() - end.size()) == end;
}

}  // namespace record

#endif
