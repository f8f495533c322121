// One series of pictures, on the thread of its task.
#ifndef RECORD_PHOTO_RUN_H
#define RECORD_PHOTO_RUN_H

#include <ctime>
#include <string>

#include "base/clock.h"
#include "record/photo_task.h"

namespace record {

class PhotoRun {
 public:
  explicit PhotoRun(CPhotoTask& task);

  void Run();

 private:
  bool WaitUntil(long long dueMs);  // since the begin; false when the task was stopped
  void TakeOne(int number);
  std::string Store(int number, const std::string& directory, const JpegPicture& picture);
  void HandOver(int number, const std::string& directory);
  void Fail(int number, const char* reason);

  CPhotoTask& m_task;
  const RunTime m_begin;
  bool m_hasStorage = true;  // a lack of it raises one alarm, not one a picture
  struct tm m_taken = {};
  std::string m_name;
};

}  // namespace record

#endif
