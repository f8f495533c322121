// How much of a test of chance is run: enough to catch a fault in every change by default, more when asked.
#ifndef TESTS_TRUST_RUN_SIZE_H
#define TESTS_TRUST_RUN_SIZE_H

#include <cstdlib>

namespace trust {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kSanitized = true;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
constexpr bool kSanitized = true;
#else
constexpr bool kSanitized = false;
#endif
#else
constexpr bool kSanitized = false;
#endif

// The number in that environment variable, else `usual`.
inline long FromEnvironment(const char* variable, long usual) {
  const char* text = std::getenv(variable);
  return text != nullptr && *text != '\0' ? std::strtol(text, nullptr, 10) : usual;
}

}  // namespace trust

#endif
