// Where text goes: machine output to stdout, messages and progress to stderr.
#ifndef RECORDCTL_OUTPUT_H
#define RECORDCTL_OUTPUT_H

#include <cstddef>
#include <nlohmann/json.hpp>
#include <string>

namespace recordctl {

using Json = nlohmann::ordered_json;

// One line on stderr, "recordctl: <text>", in place of a progress line that stands there.
void Say(const std::string& text);
// Say, for `return Fail(...)`: kFailed.
int Fail(const std::string& text);

// stdout, buffered. False once the reader has gone: then stop, quietly.
bool Write(const void* data, std::size_t length);
bool WriteText(const char* format, ...) __attribute__((format(printf, 1, 2)));
bool WriteJson(const Json& object);  // one line
// Empties the buffer at once, for output that somebody waits for.
bool FlushOutput();
// At the end of the program: `code`, or kFailed (with a message) when output was lost to anything but a reader
// that went away.
int FinishOutput(int code);

// Names found on a medium may hold anything: control characters become '?'.
std::string Printable(std::string text);
std::string Grouped(unsigned long long number);  // "1,008,699"

}  // namespace recordctl

#endif
