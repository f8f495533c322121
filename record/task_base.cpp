#include <cstring>

#include "base/clock.h"
#include "base/log.h"
#include "base/published_paths.h"
#include "record/task.h"
#include "storage/layout.h"

namespace {

// Copies a base directory unless it is missing or too long; tells whether it did.
bool CopyBase(char (&base)[MAX_STORAGE_BASE + 1], const char* path) {
  if (path == nullptr) {
    RECORD_LOG_TEXT("path is NULL!\n\n");
    return false;
  }
  const size_t length = std::strlen(path);
  if (length > MAX_STORAGE_BASE) {
    RECORD_LOG("path length = %d is longer than MAX_STORAGE_BASE=%d!\n\n", static_cast<int>(length),
               MAX_STORAGE_BASE);
    return false;
  }
  std::memcpy(base, path, length + 1);
  return true;
}

}  // namespace

CTaskbase::CTaskbase(int type)
    : m_storageBase{},
      m_networkBase{},
      m_ipAddress{},
      m_taskName{},
      m_type(type),
      m_streamSelector(0),
      m_readerId(reinterpret_cast<std::uintptr_t>(this)),
      m_recordType(type),
      m_config{},
      m_ftp(nullptr),
      m_email(nullptr),
      m_local_store(0),
      m_remote_store(0),
      m_localFileName{},
      m_networkFileName{},
      m_workName{},
      m_lockFilePath{},
      m_running(0),
      m_published(std::make_unique<record::PublishedPaths>()) {
  std::strncpy(m_taskName, record::KindTaskName(type), sizeof m_taskName - 1);
}

CTaskbase::~CTaskbase() = default;

void CTaskbase::SetStorageBase(const char* path) {
  if (CopyBase(m_storageBase, path)) m_published->storageBase.Set(m_storageBase);
}

const char* CTaskbase::GetStorageBase() const {
  return m_storageBase;
}

void CTaskbase::SetNetworkBase(const char* path) {
  RECORD_LOG("%s\n", path != nullptr ? path : "(null)");
  CopyBase(m_networkBase, path);
}

const char* CTaskbase::GetNetworkBase() const {
  return m_networkBase;
}

void CTaskbase::SetIpAddr(const char* address) {
  std::strncpy(m_ipAddress, address != nullptr ? address : "", sizeof m_ipAddress - 1);
}

void CTaskbase::SetFtpParam(FtpServer* server) {
  m_ftp = server;
}

FtpServer* CTaskbase::GetFtpParam() const {
  return m_ftp;
}

void CTaskbase::SetEmailParam(SmtpServerList* servers) {
  m_email = servers;
}

SmtpServerList* CTaskbase::GetEmailParam() const {
  return m_email;
}

void CTaskbase::SetStreamSelector(int selector) {
  m_streamSelector = selector;
}

int CTaskbase::GetStreamSelector() const {
  return m_streamSelector;
}

int CTaskbase::GetRecordType() const {
  return m_recordType;
}

const char* CTaskbase::GetTaskName() const {
  return m_taskName;
}

std::uintptr_t CTaskbase::GetReaderId() const {
  return m_readerId;
}

int CTaskbase::IsRunning() const {
  return m_running;
}

CMutex& CTaskbase::GetMutex() {
  return m_mutex;
}

unsigned int CTaskbase::GetCurrentTime() {
  const record::RunTime now = record::RunNow();
  return now.seconds * 1000 + now.microseconds / 1000;
}

std::string CTaskbase::SharedStorageBase() const {
  return m_published->storageBase.Get();
}

std::string CTaskbase::SharedLocalPath() const {
  return record::JoinPath(m_published->storageBase.Get(), m_published->localFileName.Get());
}

void CTaskbase::SetLocalFileName(const char* name) {
  std::strncpy(m_localFileName, name, sizeof m_localFileName - 1);
  m_published->localFileName.Set(m_localFileName);
}
