// The snapshot task: a timed series of JPEG pictures of a stream.
//
// Its life is that of a record task: construct it, set its upload targets if wanted, register it
// (TaskManagerAddTask), Start() it. From a successful Start() on it belongs to its thread, which ends after the
// last picture or soon after Stop(), takes the task out of the registry and deletes it.
//
// A picture is stored as YYYYMMDD_HHMMSS_n.jpg (local time; n counts the series from 1, and passes over names that
// are taken) in the day directory of its kind: on the first medium with room, with a copy on the network share
// when that is wanted, too, or on the share alone. Medium and day are chosen anew for every picture. A picture
// that cannot be taken or stored is reported, and the series goes on.
#ifndef RECORD_PHOTO_TASK_H
#define RECORD_PHOTO_TASK_H

#include "record/task.h"

namespace record {
class PhotoRun;
}

// One series, as the application hands it to the constructor (copied there).
struct PHOTO_TASK_PARAM {
  std::int32_t phototype;     // RecordKind: which directory
  std::int32_t stream;        // encoder stream: 0 main, 1 sub
  std::int32_t count;         // pictures. REQUIRES: count >= 1
  std::int32_t interval;      // seconds from one picture to the next. REQUIRES: interval >= 0
  std::int32_t width;         // pixels; 0 with height 0: as the stream has them
  std::int32_t height;        // pixels
  std::int32_t quality;       // 1 (smallest) to 100 (best); 0: the platform's choice
  std::int32_t local_store;   // non-zero: store on a local medium
  std::int32_t remote_store;  // non-zero: on the share; beside a local file a copy
};
static_assert(sizeof(PHOTO_TASK_PARAM) == 36, "9 words");

class RECORD_API CPhotoTask : public CTaskbase {
 public:
  CPhotoTask(const PHOTO_TASK_PARAM& param, const RecordConfig& config);
  ~CPhotoTask() override;

  // 0; or -1 with a log line (and alarm 20 when there is no storage), the task then still belongs to the caller.
  int Start() override;
  // Asks the thread to end. Does not wait; returns 0. Any thread.
  int Stop() override;

  void GetTaskParam(PHOTO_TASK_PARAM* param, RecordConfig* config) const;

 protected:
  // Called by the task's thread for each picture of the series (`number` from 1), once it is stored and handed to
  // the uploads, or once it is given up. The texts are valid during the call. Nothing here.
  virtual void PictureStored(int number, const char* path);
  virtual void PictureFailed(int number, const char* reason);

 private:
  static void* Thread(void* task);

  PHOTO_TASK_PARAM m_param;
  char m_logPrefix[256];  // "[serial][device name]"

  friend class record::PhotoRun;
};

#endif
