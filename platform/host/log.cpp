#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <ctime>

#include "record_host/host.h"

namespace {

constexpr size_t kLongestLine = 4096;

std::atomic<int> g_level{-1};

size_t PutStamp(char* line, size_t size, int module, int level) {
  struct timespec now;
  clock_gettime(CLOCK_REALTIME, &now);
  const time_t seconds = now.tv_sec;
  struct tm local = {};
  localtime_r(&seconds, &local);
  const int length = snprintf(line, size, "%02d:%02d:%02d.%03ld %d/%d ", local.tm_hour, local.tm_min, local.tm_sec,
                              now.tv_nsec / 1000000, module, level);
  return length > 0 ? static_cast<size_t>(length) : 0;
}

// Texts may hold names found on a card: nothing in them may start a line of its own or steer a terminal.
void Defuse(char* text, size_t length) {
  std::replace_if(
      text, text + length, [](unsigned char c) { return c < 0x20 || c == 0x7f; }, '?');
}

}  // namespace

void HostLogLevel(int level) {
  g_level.store(level, std::memory_order_relaxed);
}

void DebugPrint(int module, int level, const char* format, ...) {
  if (level > g_level.load(std::memory_order_relaxed)) return;
  char line[kLongestLine];
  const size_t head = PutStamp(line, sizeof(line), module, level);
  va_list arguments;
  va_start(arguments, format);
  const int wanted = vsnprintf(line + head, sizeof(line) - head - 1, format, arguments);
  va_end(arguments);
  if (wanted < 0) return;

  size_t end = head + std::min(static_cast<size_t>(wanted), sizeof(line) - head - 2);
  while (end > head && line[end - 1] == '\n') --end;
  Defuse(line + head, end - head);
  line[end++] = '\n';
  const ssize_t written = write(STDERR_FILENO, line, end);
  static_cast<void>(written);  // there is nobody left to tell
}
