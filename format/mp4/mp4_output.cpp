#include "format/mp4/mp4_output.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "base/device_path.h"
#include "base/log.h"
#include "storage/file_syncer.h"

namespace record {

Mp4Output::Mp4Output(CMp4Task& task)
    : RecordOutput(task, ".mp4"), m_mp4Task(task), m_isIpcServer(HasFlag(flag::kIpcServer)) {}

Mp4Output::~Mp4Output() {
  for (Destination* destination : Destinations()) Close(*destination);
}

std::string Mp4Output::FixedLocalName() const {
  const size_t root = std::strlen(GetDeviceRoot());
  return m_isIpcServer && m_local.directory.find("manual", root) != std::string::npos ? "manual_record_alarm.mp4"
                                                                                      : "";
}

// The name is taken by an empty file before the multiplexer writes over it, so that no recording is written over;
// but for the fixed name, whose file is the last recording only.
int Mp4Output::OpenFile(Destination& destination) {
  const bool isFixed = !destination.isNetwork && !FixedLocalName().empty();
  const int taken = isFixed ? -1 : TakeName(destination, destination.isNetwork ? O_NONBLOCK : 0);
  std::string path = destination.Path();
  const bool opened = (isFixed || taken >= 0) && m_mp4Task.OpenFile(path.data(), destination.muxer) == 0;
  const int error = errno;
  if (taken >= 0) close(taken);
  if (taken >= 0 && !opened) unlink(path.c_str());
  if (!opened && !destination.isNetwork) RECORD_LOG_TEXT("Open MP4 failed. return.\n");
  errno = error;
  if (!opened) return -1;
  // For the background syncs: what a commit has handed to the system reaches the medium, and beside it the side
  // file and the name. Without it the multiplexer's own commits have to do.
  destination.file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  return 0;
}

void Mp4Output::NetworkIsNext() {
  RECORD_LOG("NFS path: %s\n", m_network.directory.c_str());
  if (!m_network.directory.empty() && m_local.IsOpen())
    RECORD_LOG("Using copy when RecordEnd, file: %s ...\n\n", m_local.Path().c_str());
}

void Mp4Output::Close(Destination& destination) {
  if (destination.muxer != nullptr) Emp4MuxerClose(destination.muxer);
  destination.muxer = nullptr;
  CloseFile(destination);
}

void Mp4Output::Finish() {
  if (m_local.muxer != nullptr) FinishLocal();
  if (m_network.muxer != nullptr) FinishNetwork();
  if (IsBegun()) FileSyncer::SyncNeighbours(FilePath());
}

void Mp4Output::FinishLocal() {
  Close(m_local);
  if (TaskRuns()) Upload(m_local);
  if (m_network.muxer == nullptr && !m_network.directory.empty()) CopyToNetwork();
}

void Mp4Output::FinishNetwork() {
  Close(m_network);
  if (TaskRuns()) Upload(m_network);
}

void Mp4Output::CopyToNetwork() {
  RECORD_LOG_TEXT("Copy local to network\n");
  mysystem_with_param("cp %s/%s %s/%s &", ShellWord(m_local.directory).c_str(), ShellWord(m_local.name).c_str(),
                      ShellWord(m_network.directory).c_str(), ShellWord(m_network.name).c_str());
}

}  // namespace record
