// Collects what is wrong with a file, one line each.
#ifndef FORMAT_COMPLAINTS_H
#define FORMAT_COMPLAINTS_H

#include <cstddef>
#include <string>
#include <vector>

namespace record {

// A file that is damaged throughout shall not fill the memory with its complaints.
class Complaints {
 public:
  explicit Complaints(std::vector<std::string>& lines) : m_lines(lines) {}

  void Add(const char* format, ...) __attribute__((format(printf, 2, 3)));
  void Finish();  // tells how many more there were

 private:
  std::vector<std::string>& m_lines;
  std::size_t m_count = 0;
};

}  // namespace record

#endif
