// A record task whose writer writes nothing and whose members a test can look at.
#ifndef TESTS_RECORD_PROBE_TASK_H
#define TESTS_RECORD_PROBE_TASK_H

#include <cstdio>
#include <string>

#include "tests/support/task_param.h"

namespace recordtest {

class ProbeTask : public CRecordTask {
 public:
  using CRecordTask::CRecordTask;
  int RecordBegin() override { return 0; }
  int RecordEnd() override { return 0; }
  int RecordOneVideoFrame(int, char*, int, unsigned int) override { return 0; }
  int RecordOneAudioFrame(char*, int, unsigned int) override { return 0; }

  void SetFilePath(const std::string& path) { std::snprintf(m_filePath, sizeof m_filePath, "%s", path.c_str()); }
  // The file began at that wall clock and lasts for that long by the run-time clock.
  void SetTimes(unsigned wallSeconds, unsigned wallMicroseconds, unsigned long long lengthMicroseconds) {
    constexpr unsigned kStart = 1000;
    m_times = {wallSeconds,
               wallMicroseconds,
               kStart,
               0,
               kStart + static_cast<unsigned>(lengthMicroseconds / 1000000),
               static_cast<unsigned>(lengthMicroseconds % 1000000)};
  }

  using CRecordTask::m_info;
  using CRecordTask::m_lockFile;
  using CRecordTask::m_logPrefix;
  using CRecordTask::m_minuteTypes;
  using CRecordTask::m_typeIndexPath;
  using CTaskbase::m_local_store;
  using CTaskbase::m_lockFilePath;
  using CTaskbase::m_remote_store;
  using CTaskbase::m_running;
  using CTaskbase::SetLocalFileName;
};

inline RECORD_TASK_PARAM UsualParam() {
  RECORD_TASK_PARAM param = fake::DefaultParam();
  param.audio_enable = 1;
  param.bitrate = 4000000;
  param.duration = 60;
  param.max_file_seconds = 30;
  param.remote_store = 1;
  return param;
}

inline RecordConfig UsualConfig() {
  return {1, 1, {}};
}

}  // namespace recordtest

#endif
