#include "tools/recordctl/output.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "tools/recordctl/options.h"
#include "tools/recordctl/progress.h"

namespace recordctl {
namespace {

int g_outputError = 0;  // of the first write that failed

bool Note(bool written) {
  if (!written && g_outputError == 0) g_outputError = errno != 0 ? errno : EIO;
  return g_outputError == 0;
}

}  // namespace

void Say(const std::string& text) {
  ClearProgressLine();
  std::fprintf(stderr, "recordctl: %s\n", Printable(text).c_str());
}

int Fail(const std::string& text) {
  Say(text);
  return kFailed;
}

bool Write(const void* data, std::size_t length) {
  return Note(std::fwrite(data, 1, length, stdout) == length);
}

bool WriteText(const char* format, ...) {
  ClearProgressLine();
  va_list arguments;
  va_start(arguments, format);
  const int length = std::vprintf(format, arguments);
  va_end(arguments);
  return Note(length >= 0);
}

bool WriteJson(const Json& object) {
  const std::string text = object.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
  return Write(text.data(), text.size());
}

bool FlushOutput() {
  return Note(std::fflush(stdout) == 0);
}

int FinishOutput(int code) {
  FlushOutput();
  if (g_outputError == 0 || g_outputError == EPIPE) return code;
  return Fail(std::string("cannot write the output: ") + std::strerror(g_outputError));
}

std::string Printable(std::string text) {
  std::replace_if(
      text.begin(), text.end(), [](unsigned char c) { return c < 0x20 || c == 0x7f; }, '?');
  return text;
}

std::string Grouped(unsigned long long number) {
  std::string text = std::to_string(number);
  for (std::size_t end = text.size(); end > 3;) {
    end -= 3;
    text.insert(end, 1, ',');
  }
  return text;
}

}  // namespace recordctl
