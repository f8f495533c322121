// One record file, two destinations: what every writer does around its container, in a fixed order.
//
// A file goes to the local directory of its task; with no local directory it goes to the network share; with
// both it is written locally and copied to the share when it ends. A container supplies the bytes.
#ifndef FORMAT_RECORD_OUTPUT_H
#define FORMAT_RECORD_OUTPUT_H

#include <array>
#include <ctime>
#include <string>

#include "record/task.h"

namespace record {

// One of the two files. Plain data, owned by RecordOutput; open by its descriptor or by its multiplexer.
struct Destination {
  bool isNetwork = false;
  std::string directory;
  std::string name;
  int file = -1;
  long long offset = 0;  // where the next byte of `file` goes
  void* muxer = nullptr;

  bool IsOpen() const { return file > 0 || muxer != nullptr; }
  std::string Path() const;
};

class RecordOutput {
 public:
  // `task` outlives the output. `extension` with its dot.
  RecordOutput(CRecordTask& task, const char* extension);
  virtual ~RecordOutput();
  RecordOutput(const RecordOutput&) = delete;
  RecordOutput& operator=(const RecordOutput&) = delete;

  // The steps of beginning a file, in this order. Clocks, directories and counters:
  void StartClock();
  void SetUploadName(const std::string& name) { m_uploadName = name; }
  // "YYYYMMDDHHMMSS-av-1" of the file's start: what upload names begin with.
  std::string UploadStem() const;
  // "-motion", "-alarm" or "": what follows in upload names of most containers.
  const char* UploadKind() const;
  // Alarm, open, lock file, file list. 0, or -1 when the file cannot be opened.
  int Open();
  // After the container's head: the first side file, and the background syncs of what has a descriptor.
  void Announce();

  // The steps of ending a file. Clocks and, unless the file never came past its head, the final side file:
  void StopClock();
  // What stands in an open file reaches the medium; a failure is told by the write-failure flag, and only once by
  // the system.
  void Sync(Destination& destination);
  // After the container's end: close, notice, copy to the share, uploads. The container then removes the lock
  // file.
  virtual void Finish() = 0;

  Destination& Local() { return m_local; }
  Destination& Network() { return m_network; }
  std::array<Destination*, 2> Destinations() { return {&m_local, &m_network}; }
  bool AnyOpen() const { return m_local.IsOpen() || m_network.IsOpen(); }

 protected:
  // Opens the container's file at the destination, by TakeName or else. 0; or -1, for a local file with a log
  // line that says why.
  virtual int OpenFile(Destination& destination) = 0;
  // What stands for a time lapse without sound in names.
  virtual const char* SilentLapseTag() const { return "vv"; }
  // A name that every local file of the task gets; "" for names by time.
  virtual std::string FixedLocalName() const { return {}; }

  // Creates a file that nobody had before under the destination's name, or the next second's when it is taken.
  // Its descriptor (above 0), or -1 with errno.
  int TakeName(Destination& destination, int flags);
  // What is said once the local file is begun, or there is none.
  virtual void NetworkIsNext() {}
  // Syncs and closes the descriptor of a destination, if it has one.
  void CloseFile(Destination& destination);
  virtual void CopyToNetwork();
  void Upload(const Destination& destination);
  bool IsBegun() const { return m_begun; }

  CRecordTask& m_task;
  Destination m_local;
  Destination m_network;

  // What a container needs of its task.
  const RECORD_TASK_PARAM& Param() const { return m_task.m_param; }
  bool TaskRuns() const { return m_task.m_running != 0; }
  std::atomic<int>& WriteFailed() { return m_task.m_writeFailed; }
  const char* FilePath() const { return m_task.m_filePath; }

 private:
  int OpenLocal();
  int OpenNetwork();
  const char* Tag() const;  // "av", "vv" or "sv"
  void FollowTheDay();
  std::string NameAt(int secondsLater) const;
  void ChooseName(Destination& destination, int from);
  void Enter(const Destination& destination);  // lock file and file list

  const char* m_extension;
  struct tm m_start = {};
  struct tm m_end = {};
  int m_namedLater = 0;  // how many seconds after the start the chosen name tells
  bool m_begun = false;
  std::string m_uploadName;
};

}  // namespace record

#endif
