// Diagnostics, in the form that all of them have: "[function:line]" in front, module 8 and level 7 mostly.
#ifndef BASE_LOG_H
#define BASE_LOG_H

#include "record/platform.h"

namespace record {
constexpr int kLogModule = 8;
constexpr int kLogModuleLifecycle = 1;  // starts and stops
constexpr int kLogLevel = 7;
}  // namespace record

// With arguments, and without: ISO C++17 has no variadic macro for both.
#define RECORD_LOG_MODULE(module, format, ...) \
  DebugPrint(module, record::kLogLevel, "[%s:%u]" format, __func__, static_cast<unsigned>(__LINE__), __VA_ARGS__)
#define RECORD_LOG_MODULE_TEXT(module, text) \
  DebugPrint(module, record::kLogLevel, "[%s:%u]" text, __func__, static_cast<unsigned>(__LINE__))
#define RECORD_LOG(format, ...) RECORD_LOG_MODULE(record::kLogModule, format, __VA_ARGS__)
#define RECORD_LOG_TEXT(text) RECORD_LOG_MODULE_TEXT(record::kLogModule, text)

#endif
