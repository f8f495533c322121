#include "format/complaints.h"

#include <cstdarg>
#include <cstdio>

namespace record {
namespace {

constexpr std::size_t kMostComplaints = 100;

}  // namespace

void Complaints::Add(const char* format, ...) {
  if (++m_count > kMostComplaints) return;
  char text[256];
  va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(text, sizeof(text), format, arguments);
  va_end(arguments);
  m_lines.push_back(text);
}

void Complaints::Finish() {
  if (m_count > kMostComplaints) m_lines.push_back(std::to_string(m_count - kMostComplaints) + " more");
}

}  // namespace record
