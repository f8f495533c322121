// The name under which an output is written, and how it gets its own: "<path>.part" until it is whole and on the
// medium. What is there and is no regular file (a pipe, a device) is written in place.
#ifndef EXPORT_OUTPUT_NAME_H
#define EXPORT_OUTPUT_NAME_H

#include <string>

namespace record {

class OutputName {
 public:
  enum class Old { kReplaced, kWrittenOver };  // what becomes of an older file of that name

  OutputName(std::string path, Old old) : m_path(std::move(path)), m_old(old) {}

  const std::string& Path() const { return m_path; }
  // Where to write. Asks the file system: once, before the file is opened.
  const std::string& Choose();
  const std::string& Chosen() const { return m_chosen; }
  bool IsTemporary() const { return m_chosen != m_path; }

  // The file is whole and closed. 0, or an errno: then it still lies under the chosen name.
  int Publish() const;
  // Nothing came into the file: an empty one is removed.
  void Abandon() const;

 private:
  const std::string m_path;
  const Old m_old;
  std::string m_chosen;
};

}  // namespace record

#endif
