// The file that a conversion makes: written by the container's own writer, in a directory of its own beside the
// place where it belongs, and put there when it is whole.
#ifndef RECORDCTL_CONVERT_TARGET_H
#define RECORDCTL_CONVERT_TARGET_H

#include <memory>
#include <string>

#include "record/task.h"
#include "tools/recordctl/convert_source.h"

namespace recordctl {

class ConvertTarget {
 public:
  ConvertTarget(Container container, std::string path);
  // Takes away whatever was not put in place.
  ~ConvertTarget();
  ConvertTarget(const ConvertTarget&) = delete;
  ConvertTarget& operator=(const ConvertTarget&) = delete;

  // Makes the directory and puts the library's device tree into it: what a writer leaves around its file goes
  // there.
  bool Prepare();
  bool Begin(const RECORD_TASK_PARAM& media, const VIDEO_PARAM& video);
  bool Write(const TimedFrame& frame);
  bool End();
  // Reads what was written and compares it with what was handed over, then puts it in place.
  bool Keep();

  const RecordInfoStruct& Written() const { return m_info; }
  const std::string& Error() const { return m_error; }  // one line, after a false

 private:
  bool Fail(const std::string& error);
  void SetConfig();
  bool BringsConfig(const TimedFrame& frame) const;

  const Container m_container;
  const std::string m_path;
  std::string m_directory;  // "" until it is there
  std::unique_ptr<CRecordTask> m_task;
  VIDEO_PARAM m_video = {};
  bool m_configSet = false;
  RecordInfoStruct m_info = {};
  std::string m_written;  // path
  std::string m_error;
};

}  // namespace recordctl

#endif
