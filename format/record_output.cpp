#include "format/record_output.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "base/clock.h"
#include "base/device_facts.h"
#include "base/log.h"
#include "record/platform.h"
#include "storage/file_syncer.h"
#include "storage/layout.h"

namespace record {
namespace {

constexpr int kRecordFileMode = 0777;
constexpr int kNamesToTry = 120;

// A process that has closed its standard input would be given descriptor 0, which counts as not open here.
int AwayFromZero(int file) {
  if (file != 0) return file;
  const int moved = fcntl(file, F_DUPFD_CLOEXEC, 1);
  close(file);
  return moved;
}

}  // namespace

std::string Destination::Path() const {
  return JoinPath(directory, name);
}

RecordOutput::RecordOutput(CRecordTask& task, const char* extension) : m_task(task), m_extension(extension) {
  m_network.isNetwork = true;
}

RecordOutput::~RecordOutput() {
  for (Destination* destination : Destinations()) CloseFile(*destination);
}

void RecordOutput::StartClock() {
  const RunTime run = RunNow();
  const WallTime wall = WallNow();
  m_task.m_times = {static_cast<std::uint32_t>(wall.seconds),
                    static_cast<std::uint32_t>(wall.microseconds),
                    run.seconds,
                    run.microseconds,
                    run.seconds,
                    run.microseconds};
  m_task.m_preRecordedVideoFrames = 0;
  m_task.m_fileFull = false;
  m_task.m_writeFailed = 0;
  m_task.m_filePath[0] = '\0';
  // The key-frame counter is deliberately left: it counts over the task. The total is the container's.
  m_task.m_info.videoFrames = 0;
  m_task.m_info.audioFrames = 0;
  m_task.m_info.videoBytes = 0;
  m_task.m_info.audioBytes = 0;
  m_start = LocalTime(wall.seconds);
  m_begun = false;
  FollowTheDay();
  m_local.directory = m_task.GetStorageBase();
  m_network.directory = m_task.GetNetworkBase();
}

// The task chose its directory when it was started, and may have waited over midnight for its camera.
void RecordOutput::FollowTheDay() {
  const std::string local = DayDirectoryOf(m_task.GetStorageBase(), m_start);
  if (local != m_task.GetStorageBase()) {
    SafeMakeDir(local.c_str());
    m_task.SetStorageBase(local.c_str());
  }
  const std::string network = DayDirectoryOf(m_task.GetNetworkBase(), m_start);
  if (network != m_task.GetNetworkBase()) {
    SafeMakeDir(network.c_str());
    m_task.SetNetworkBase(network.c_str());
  }
}

std::string RecordOutput::UploadStem() const {
  char stem[128];
  std::snprintf(stem, sizeof stem, "%04d%02d%02d%02d%02d%02d-%s-%d", m_start.tm_year + 1900, m_start.tm_mon + 1,
                m_start.tm_mday, m_start.tm_hour, m_start.tm_min, m_start.tm_sec, Tag(),
                m_task.m_param.stream + 1);
  return stem;
}

const char* RecordOutput::UploadKind() const {
  if (m_task.m_recordType == RECORD_KIND_MOTION) return "-motion";
  return m_task.m_recordType == RECORD_KIND_ALARM ? "-alarm" : "";
}

const char* RecordOutput::Tag() const {
  if (m_task.m_param.audio_enable > 0) return "av";
  return m_task.m_param.timelapse > 0 ? SilentLapseTag() : "vv";
}

std::string RecordOutput::NameAt(int secondsLater) const {
  const struct tm named = LocalTime(static_cast<long long>(m_task.m_times.wallSeconds) + secondsLater);
  return RecordFileName(named, Tag(), m_task.m_param.stream, m_extension);
}

// A file of the name that is due may hold a recording already: a task that was started twice within a second,
// or the hour that a clock shows again. It is never written over: the next second's name is taken instead.
void RecordOutput::ChooseName(Destination& destination, int from) {
  for (m_namedLater = from; m_namedLater < kNamesToTry; ++m_namedLater) {
    const std::string name = NameAt(m_namedLater);
    if (m_namedLater > 0 && name.compare(0, 2, destination.name, 0, 2) < 0)
      break;  // the next day's: not in this directory
    destination.name = name;
    if (access(destination.Path().c_str(), F_OK) != 0) return;
  }
  m_namedLater = kNamesToTry;
}

int RecordOutput::TakeName(Destination& destination, int flags) {
  while (true) {
    const int file = AwayFromZero(
        open(destination.Path().c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | flags, kRecordFileMode));
    if (file >= 0 || errno != EEXIST || m_namedLater >= kNamesToTry) return file;
    ChooseName(destination, m_namedLater + 1);  // somebody took it in between
  }
}

void RecordOutput::Enter(const Destination& destination) {
  std::string name = destination.name;
  m_task.CreateLockFile(name.data(), &m_start);
  m_task.WriteFileList(destination.directory.c_str(), destination.name.c_str());
  std::snprintf(m_task.m_filePath, sizeof m_task.m_filePath, "%s", destination.Path().c_str());
}

int RecordOutput::OpenLocal() {
  m_local.name = FixedLocalName();
  if (m_local.name.empty()) ChooseName(m_local, 0);
  m_task.SetLocalFileName(m_local.name.c_str());  // in use from before it is there
  const AlarmTime time = ToAlarmTime(m_start);
  AuxMsgReportAlarm(&time, ALARM_RECORD_BEGIN, 1, 1, m_local.Path().c_str());
  if (OpenFile(m_local) != 0) return -1;
  m_task.SetLocalFileName(m_local.name.c_str());
  Enter(m_local);
  RECORD_LOG("store file: %s ...\n\n", m_local.Path().c_str());
  return 0;
}

int RecordOutput::OpenNetwork() {
  if (m_local.IsOpen()) {
    m_network.name = FixedLocalName().empty() ? m_local.name : NameAt(0);
    return 0;  // copied there when the file ends
  }
  ChooseName(m_network, 0);
  if (OpenFile(m_network) != 0) {
    RECORD_LOG("open %s failed, err = %s\n\n", m_network.Path().c_str(), std::strerror(errno));
    return -1;
  }
  Enter(m_network);
  RECORD_LOG("store file: %s ...\n\n", m_network.name.c_str());
  return 0;
}

int RecordOutput::Open() {
  if (!m_local.directory.empty() && OpenLocal() != 0) return -1;
  NetworkIsNext();
  if (!m_network.directory.empty() && OpenNetwork() != 0) return -1;
  std::strncpy(m_task.m_networkFileName, m_network.name.c_str(), sizeof m_task.m_networkFileName - 1);
  return 0;
}

void RecordOutput::Announce() {
  m_begun = true;
  m_task.m_times.currentSeconds =
      m_task.m_times.startSeconds + static_cast<std::uint32_t>(m_task.m_param.duration);
  m_task.m_times.currentMicroseconds = m_task.m_times.startMicroseconds;
  m_task.WriteInfoFile(0);
  for (Destination* destination : Destinations()) {
    if (destination->file > 0)
      FileSyncer::Get().Add(destination->file, destination->Path(), &m_task.m_writeFailed);
  }
}

void RecordOutput::Sync(Destination& destination) {
  if (fsync(destination.file) == 0) return;
  RECORD_LOG("sync %s failed, err = %s\n\n", destination.Path().c_str(), std::strerror(errno));
  m_task.m_writeFailed = 1;
}

void RecordOutput::CloseFile(Destination& destination) {
  if (destination.file >= 0) {
    FileSyncer::Get().Remove(destination.file);
    Sync(destination);
    close(destination.file);
  }
  destination.file = -1;
}

void RecordOutput::StopClock() {
  m_end = LocalNow();
  m_task.ReadRunClock();
  if (m_begun) m_task.WriteInfoFile(1);
}

void RecordOutput::CopyToNetwork() {
  const std::string command =
      CopyWords(m_local.directory, m_local.name, m_network.directory, m_network.name) + " &";
  RECORD_LOG("Copy local to network, cmd=%s.\n\n", command.c_str());
  mysystem(command.c_str());
}

void RecordOutput::Upload(const Destination& destination) {
  m_task.FtpFile(destination.directory.c_str(), destination.name.c_str(), m_end, m_uploadName.c_str());
  const RECORD_TASK_PARAM& param = m_task.m_param;
  char text[512];
  std::snprintf(text, sizeof text, "%s %s, stream %d, %dx%d, %d fps", m_task.m_logPrefix, m_task.m_taskName,
                param.stream, param.width, param.height, param.framerate);
  m_task.EmailFile(destination.directory.c_str(), destination.name.c_str(), text);
}

}  // namespace record
