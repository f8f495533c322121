// Tasks: the common base and the record tasks.
//
// Life of a record task: construct a writer (CKmvTask, CAviTask), set its upload targets if wanted, register it
// (TaskManagerAddTask), Start() it, later Stop() it. From a successful Start() on the task belongs to its
// record thread, which ends the file, takes the task out of the registry and deletes it. A task whose Start()
// failed, or that was never started, belongs to the application.
#ifndef RECORD_TASK_H
#define RECORD_TASK_H

#include <pthread.h>

#include <atomic>
#include <ctime>
#include <memory>
#include <string>

#include "record/platform.h"
#include "record/types.h"

namespace record {
class RecordRun;
class RecordOutput;
class PublishedPaths;
}  // namespace record

constexpr int MAX_STORAGE_BASE = 256;  // longest storage or network base, without its terminator

// What the registry and storage maintenance see of any task.
class RECORD_API CTaskbase {
 public:
  // `type` is a RecordKind; it also names the task ("sched", "manual", "alarm", anything else "motion").
  explicit CTaskbase(int type);
  virtual ~CTaskbase();
  CTaskbase(const CTaskbase&) = delete;
  CTaskbase& operator=(const CTaskbase&) = delete;

  virtual int Start() = 0;
  virtual int Stop() = 0;

  // The local / network directory that receives the task's files; longer than MAX_STORAGE_BASE is refused
  // and leaves the old value. The getters never return null; the pointer is valid until the next set. Start()
  // and the begin of a file set them: while a task runs, other threads ask SharedStorageBase.
  void SetStorageBase(const char* path);
  const char* GetStorageBase() const;
  void SetNetworkBase(const char* path);
  const char* GetNetworkBase() const;

  void SetIpAddr(const char* address);  // at most 31 characters are kept
  // Upload targets, not owned; null for none. Set them before Start().
  void SetFtpParam(FtpServer* server);
  FtpServer* GetFtpParam() const;
  void SetEmailParam(SmtpServerList* servers);
  SmtpServerList* GetEmailParam() const;

  // The word that TaskManagerGetTaskCount and TaskManagerGetFirst compare; a record task sets it to its
  // stream number.
  void SetStreamSelector(int selector);
  int GetStreamSelector() const;

  int GetRecordType() const;           // recordtype of a record task, else the constructor's type
  const char* GetTaskName() const;     // "sched", "manual", "alarm", "motion"
  std::uintptr_t GetReaderId() const;  // the id under which the task reads streams
  int IsRunning() const;
  CMutex& GetMutex();

  // Milliseconds of the system's running time, modulo 2^32. Compare differences only.
  static unsigned int GetCurrentTime();

  // Copies of the storage base and of "base/local file name" that any thread may take while the task runs.
  std::string SharedStorageBase() const;
  std::string SharedLocalPath() const;

 protected:
  static constexpr int kNeedMB = 500;  // asked of a medium whatever the task

  void SetLocalFileName(const char* name);

  // The choice of storage: sets the two bases to the day's directories of the task's kind, on the first medium
  // with room and the share beside it, or on the share alone. False (with log lines) when there is neither.
  bool ChooseMedium();
  bool ChooseLocalStorage();
  bool ChooseNetworkStorage();
  static void AlarmNoStorage(const char* logPrefix);

  // Hand a finished file to the targets that are set. `day` dates the directory at the server.
  void FtpFile(const char* directory, const char* name, const struct tm& day, const char* uploadName);
  void EmailFile(const char* directory, const char* name, const char* text);

  // Set before the task starts. Afterwards its thread changes the two directories (a file belongs to the day on
  // which it begins) and nothing else; other threads take the shared copies.
  char m_storageBase[MAX_STORAGE_BASE + 1];
  char m_networkBase[MAX_STORAGE_BASE + 1];
  char m_ipAddress[32];
  char m_taskName[32];
  std::int32_t m_type;
  std::int32_t m_streamSelector;
  std::uintptr_t m_readerId;
  std::int32_t m_recordType;
  RecordConfig m_config;
  FtpServer* m_ftp;
  SmtpServerList* m_email;
  std::int32_t m_local_store;
  std::int32_t m_remote_store;

  // Used by the task's own thread.
  char m_localFileName[256];
  char m_networkFileName[256];
  char m_workName[256];
  char m_lockFilePath[512];

  std::atomic<int> m_running;  // 1 while the thread should go on
  CMutex m_mutex;              // held around writer calls and index writes

 private:
  std::unique_ptr<record::PublishedPaths> m_published;  // lock-free copies for other threads
};

// One recording job: the parameters, the choice of storage, the record thread and what writer and thread
// share about the file being written. A container derives from it and supplies the four record operations.
class RECORD_API CRecordTask : public CTaskbase {
 public:
  CRecordTask(const RECORD_TASK_PARAM& param, const RecordConfig& config);
  ~CRecordTask() override;

  // Chooses storage and starts the record thread. 0; or -1 with a log line (and alarm 20 when there is no
  // storage), the task then still belongs to the caller.
  int Start() override;
  // Asks the thread to end the file and the task. Does not wait; returns 0. Any thread.
  int Stop() override;

  // Keeps at most 256 bytes of codec configuration for the side file and the container.
  virtual void SetVolData(char* data, int length);

  // The writer's operations, called by the record thread with the task's mutex held. Begin opens a new file
  // for the current time, End finishes it. Results: 0 or greater is success; a failed write to a medium is
  // told by the write-failure flag instead. Time stamps are milliseconds modulo 2^32.
  virtual int RecordBegin() = 0;
  virtual int RecordEnd() = 0;
  virtual int RecordOneVideoFrame(int keyFrame, char* data, int length, unsigned int timestampMs) = 0;
  virtual int RecordOneAudioFrame(char* data, int length, unsigned int timestampMs) = 0;
  virtual void SyncAV();  // hook after every pass of the thread; nothing here

  int StartThread(void* (*threadFunction)(void*));
  void GetTaskParam(RECORD_TASK_PARAM* param, RecordConfig* config) const;

  // The small files beside a record file. 0, or -1.
  int WriteInfoFile(int atEnd);  // 0 at the begin of a file, greater at its end
  int loadRecTypeIdx();
  int updateRecTypeIdx(int minute);
  int setRecTypeIdx(int minute, char code);
  void CreateLockFile(char* name, struct tm* start);
  void RemoveLockFile();
  int WriteFileList(const char* directory, const char* name);

  const char* GetFilePath() const;                // of the file being written, "" before it; record thread only
  const RecordInfoStruct& GetRecordInfo() const;  // its counters; record thread only
  int IsWriteFailed() const;                      // 1 once a write or sync of the current file failed

 protected:
  // Wall clock at the begin of the file, and the run-time clock then and now. Lengths come from the run-time
  // clock only, so that setting the wall clock never falsifies one.
  struct FileTimes {
    std::uint32_t wallSeconds;
    std::uint32_t wallMicroseconds;
    std::uint32_t startSeconds;
    std::uint32_t startMicroseconds;
    std::uint32_t currentSeconds;
    std::uint32_t currentMicroseconds;
  };
  static constexpr int kMinutesPerDay = 1440;

  void ReadRunClock();    // into m_times' current time
  void StampInfoTimes();  // puts m_times into m_info
  // Milliseconds from the begin of the file to m_times' current time, truncated; and with their fraction.
  long long ElapsedMilliseconds() const;
  double ExactElapsedMilliseconds() const;

  RECORD_TASK_PARAM m_param;
  char m_logPrefix[256];  // "[serial][device name]"
  char m_filePath[512];
  char m_minuteTypes[kMinutesPerDay];  // the day's rec_type.idx
  char m_typeIndexPath[512];           // "" until loadRecTypeIdx
  std::int32_t m_lockFile;             // descriptor, -1 when none
  RecordInfoStruct m_info;
  FileTimes m_times;
  std::int32_t m_preRecordedVideoFrames;
  bool m_fileFull;  // the container can hold no more: the thread ends the file properly
  std::atomic<int> m_writeFailed;

  friend class record::RecordRun;
  friend class record::RecordOutput;

 private:
  bool ChooseStorage();
  bool ChooseRamStorage(const char* flagFile);
};

// Records into KMV files.
class RECORD_API CKmvTask : public CRecordTask {
 public:
  CKmvTask(const RECORD_TASK_PARAM& param, const RecordConfig& config);
  ~CKmvTask() override;

  void SetVolData(char* data, int length) override;
  int RecordBegin() override;
  int RecordEnd() override;
  int RecordOneVideoFrame(int keyFrame, char* data, int length, unsigned int timestampMs) override;
  int RecordOneAudioFrame(char* data, int length, unsigned int timestampMs) override;

  // The pieces of the operations above; applications have no need of them.
  void InitParam(const RECORD_TASK_PARAM& param);
  void UpdateIndex(int offset, int second);
  int WriteHeader();
  int WriteTail();
  int CalVideoFramerate();
  int CalAudioFramerate();

 private:
  void IndexPacket(long long offset);

  struct State;
  std::unique_ptr<State> m_state;
};

// Records into AVI files.
class RECORD_API CAviTask : public CRecordTask {
 public:
  CAviTask(const RECORD_TASK_PARAM& param, const RecordConfig& config);
  ~CAviTask() override;

  int RecordBegin() override;
  int RecordEnd() override;
  // Here the frame operations also return -1: when no destination is left or the index cannot grow.
  int RecordOneVideoFrame(int keyFrame, char* data, int length, unsigned int timestampMs) override;
  int RecordOneAudioFrame(char* data, int length, unsigned int timestampMs) override;

  // The pieces of the operations above; applications have no need of them. 0, or -1.
  int InitAVIHeader();
  int UpdateAVIHeader();
  int WriteAVIHeader();
  int InitAVIIndex();
  int AddAVIIndex(unsigned long chunkId, unsigned long flags, unsigned long size);
  int WriteAVIIndex();

 private:
  int AppendFrame(std::uint32_t chunkId, bool key, char* data, int length);

  struct State;
  std::unique_ptr<State> m_state;
};

// Records H.264 and H.265 into MP4 files, through the platform's multiplexer. Other video is refused when a file
// begins; audio that MP4 files cannot hold (PCM) is left out of them.
class RECORD_API CMp4Task : public CRecordTask {
 public:
  CMp4Task(const RECORD_TASK_PARAM& param, const RecordConfig& config);
  ~CMp4Task() override;

  int RecordBegin() override;
  int RecordEnd() override;  // always 0, as are both below: what the multiplexer refuses is not counted
  int RecordOneVideoFrame(int keyFrame, char* data, int length, unsigned int timestampMs) override;
  int RecordOneAudioFrame(char* data, int length, unsigned int timestampMs) override;
  void SyncAV() override;

  // A piece of RecordBegin: 0 with the multiplexer's handle, or -1 with null. Applications have no need of it.
  int OpenFile(char* path, void*& muxer);

 private:
  template <typename Write>
  void WriteAndCommit(const Write& write);
  void Count(int length, std::uint32_t& bytes);

  struct State;
  std::unique_ptr<State> m_state;
};

#endif
