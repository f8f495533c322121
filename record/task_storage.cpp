// Where the files of a task go, and where they are sent: the same rules for every kind of task.
#include <cstdio>
#include <memory>

#include "base/clock.h"
#include "base/device_facts.h"
#include "base/log.h"
#include "record/platform.h"
#include "record/storage.h"
#include "record/task.h"

namespace {

using PathResult = std::unique_ptr<char[]>;

}  // namespace

bool CTaskbase::ChooseMedium() {
  if (ChooseLocalStorage()) return true;
  if (!ChooseNetworkStorage()) return false;
  SetStorageBase("");
  return true;
}

// Local medium first, with the network share beside it when that is wanted, too.
bool CTaskbase::ChooseLocalStorage() {
  if (m_local_store != 0) {
    const PathResult local(GetStoragePath(&m_config, m_recordType, kNeedMB));
    if (local != nullptr) {
      RECORD_LOG("storage path: %s\n\n", local.get());
      SetStorageBase(local.get());
      if (!ChooseNetworkStorage()) m_networkBase[0] = '\0';
      return true;
    }
  }
  RECORD_LOG("can not find storage path for recordtype: %d\n\n", m_recordType);
  return false;
}

bool CTaskbase::ChooseNetworkStorage() {
  if (m_remote_store != 0) {
    const PathResult network(GetNetworkStoragePath(&m_config, m_recordType, kNeedMB));
    if (network != nullptr) {
      RECORD_LOG("network path: %s\n\n", network.get());
      SetNetworkBase(network.get());
      return true;
    }
  }
  RECORD_LOG("can not find network storage path for recordtype: %d\n\n", m_recordType);
  return false;
}

void CTaskbase::AlarmNoStorage(const char* logPrefix) {
  const AlarmTime time = record::ToAlarmTime(record::LocalNow());
  AuxMsgReportAlarm(&time, ALARM_NO_STORAGE, 1, 1, logPrefix);
  MsgNotifyAlarm(ALARM_NO_STORAGE, 1, 1, logPrefix);
}

void CTaskbase::FtpFile(const char* directory, const char* name, const struct tm& day, const char* uploadName) {
  if (m_ftp == nullptr) return;
  char remote[512];
  std::snprintf(remote, sizeof remote, "%.255s/%s/%d-%d-%d/%s", m_ftp->baseDirectory, m_ipAddress,
                day.tm_year + 1900, day.tm_mon + 1, day.tm_mday, m_taskName);
  FtpOneFile(m_ftp, directory, name, remote, uploadName);
}

void CTaskbase::EmailFile(const char* directory, const char* name, const char* text) {
  if (m_email != nullptr) EmailOneFile(m_email, 0, directory, name, text);
}
