#include "format/byte_output.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "base/log.h"
#include "record/platform.h"
#include "storage/file_syncer.h"

namespace record {
namespace {

void SkipWritten(struct iovec*& parts, int& count, size_t written) {
  while (count > 0 && written >= parts->iov_len) {
    written -= parts->iov_len;
    ++parts;
    --count;
  }
  if (count == 0) return;
  parts->iov_base = static_cast<char*>(parts->iov_base) + written;
  parts->iov_len -= written;
}

}  // namespace

int ByteOutput::OpenFile(Destination& destination) {
  destination.offset = 0;
  destination.file = TakeName(destination, destination.isNetwork ? O_NONBLOCK : 0);
  if (destination.file >= 1) return 0;
  const int error = errno;
  if (!destination.isNetwork)
    RECORD_LOG("open %s failed, errno = %d, err = %s, system must be restarted!!!\n\n", destination.Path().c_str(),
               error, std::strerror(error));
  destination.file = -1;
  errno = error;
  return -1;
}

bool ByteOutput::Append(Destination& destination, struct iovec* parts, int count, size_t total, size_t& written) {
  written = 0;
  while (true) {
    const ssize_t size = writev(destination.file, parts, count);
    if (size > 0) {
      written += static_cast<size_t>(size);
      if (written == total) break;
      SkipWritten(parts, count, static_cast<size_t>(size));  // go on, so that errno tells why it stopped
    } else if (size == 0 || errno != EINTR) {
      const int error = size == 0 ? ENOSPC : errno;
      Fail(destination);
      errno = error;
      return false;
    }
  }
  destination.offset += static_cast<long long>(total);
  return true;
}

bool ByteOutput::AppendBlock(Destination& destination, const void* data, size_t length) {
  struct iovec part = {const_cast<void*>(data), length};  // writev takes no const
  size_t written;
  return Append(destination, &part, 1, length, written);
}

bool ByteOutput::Overwrite(Destination& destination, long long offset, const void* data, size_t length) {
  const char* from = static_cast<const char*>(data);
  while (length > 0) {
    const ssize_t size = pwrite(destination.file, from, length, offset);
    if (size > 0) {
      from += size;
      offset += size;
      length -= static_cast<size_t>(size);
    } else if (size == 0 || errno != EINTR) {
      const int error = size == 0 ? ENOSPC : errno;
      Fail(destination);
      errno = error;
      return false;
    }
  }
  return true;
}

void ByteOutput::Fail(Destination& destination) {
  WriteFailed() = 1;
  // The file ends after its last whole packet.
  if (ftruncate(destination.file, destination.offset) != 0) {
    // A reader passes over a torn packet, too.
  }
  CloseFile(destination);
}

void ByteOutput::FailFull(Destination& destination) {
  RECORD_LOG("%s is full\n\n", destination.name.c_str());
  Fail(destination);
}

void ByteOutput::Finish() {
  if (m_local.file >= 0) FinishLocal();
  if (m_network.file >= 0) FinishNetwork();
  if (IsBegun()) FileSyncer::SyncNeighbours(FilePath());
}

void ByteOutput::FinishLocal() {
  CloseFile(m_local);
  MsgNotifyAlarm(ALARM_RECORD_END, 1, 1, m_local.Path().c_str());
  LocalEnded();
  if (m_network.file < 0 && !m_network.directory.empty()) CopyToNetwork();
  if (TaskRuns()) Upload(m_local);
}

void ByteOutput::FinishNetwork() {
  CloseFile(m_network);
  RECORD_LOG_TEXT("close file ok.\n\n");
  if (TaskRuns() && m_local.directory.empty()) Upload(m_network);
}

}  // namespace record
