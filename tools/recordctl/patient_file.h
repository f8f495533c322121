// Bytes for a file, or for a pipe whose reader may be slow: waiting for it can be ended.
#ifndef RECORDCTL_PATIENT_FILE_H
#define RECORDCTL_PATIENT_FILE_H

#include <cstdint>
#include <functional>
#include <string>

namespace recordctl {

class PatientFile {
 public:
  // Once `isEnded` says so, readers are waited for no longer than a moment. It is asked on the thread that writes.
  explicit PatientFile(std::function<bool()> isEnded) : m_isEnded(std::move(isEnded)) {}
  ~PatientFile();
  PatientFile(const PatientFile&) = delete;
  PatientFile& operator=(const PatientFile&) = delete;

  // "-": standard output. 0, or the errno; ECANCELED when it was ended before there was a reader.
  int Open(const std::string& path);
  // All of it: 0, or the errno; ECANCELED when it was ended before there was room.
  int Write(const std::uint8_t* data, int length);
  bool CanSeek() const { return m_isRegular; }
  // As lseek; -1 when it cannot.
  long long Seek(long long offset, int whence) const;

 private:
  bool HasPatience();
  int AwaitRoom();

  const std::function<bool()> m_isEnded;
  int m_file = -1;
  bool m_isRegular = false;
  int m_patienceMs = 300;  // in all, once it is ended
};

}  // namespace recordctl

#endif
