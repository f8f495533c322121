// The uploads of one service, on disk: a directory with a small file each. Several processes may share one; a
// single one sends.
//
//   ID.wait, ID.done, ID.failed   uploads by state; rewritten whole (write, rename)
//   ID.damaged                    was waiting, but holds no upload: of no use but to be looked at
//   lock                          held by the process that sends
#ifndef PLATFORM_HOST_UPLOAD_UPLOAD_QUEUE_H
#define PLATFORM_HOST_UPLOAD_UPLOAD_QUEUE_H

#include <mutex>
#include <string>
#include <vector>

#include "platform/host/upload/upload_job.h"

namespace record {

class UploadQueue {
 public:
  // `limit`: how many may wait.
  UploadQueue(UploadService service, std::string directory, int limit);

  // Puts the job in. Quick: it is not on the medium yet, see Sync. "", or why not.
  std::string Add(UploadJob job);
  // "" while there is room, else what Add would say.
  std::string Fullness() const;
  // Brings what was put in to the medium. May take as long as the medium takes.
  void Sync() const;

  std::vector<UploadJob> Waiting() const;  // oldest first
  std::vector<UploadJob> Ended(bool done) const;
  // False when the medium takes nothing: the job waits as it did.
  bool Update(const UploadJob& job) const;
  // The job waits no longer; false when it does, see Update. The last hundred of either outcome are kept.
  bool End(const UploadJob& job, bool done) const;

  // The right to send: a descriptor to be closed, or -1 while another process has it.
  int TakeLock() const;

 private:
  std::string PathOf(const std::string& id, const char* state) const;
  std::vector<std::string> Ids(const char* state) const;
  std::vector<UploadJob> Jobs(const char* state) const;
  void PutAside(const std::string& id) const;
  void KeepNewest(const char* state) const;
  bool Write(const UploadJob& job) const;
  void MakeDirectory() const;
  void RemoveRemains() const;

  const UploadService m_service;
  const std::string m_directory;
  const int m_limit;
  std::mutex m_addMutex;  // counting and adding
};

}  // namespace record

#endif
