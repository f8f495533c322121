// Choosing a medium and making the directory for a new record file.
#include <cmath>
#include <cstdio>
#include <cstring>

#include "base/clock.h"
#include "base/device_path.h"
#include "base/log.h"
#include "base/no_throw.h"
#include "record/platform.h"
#include "record/storage.h"
#include "storage/layout.h"
#include "storage/media.h"

namespace record {
namespace {

constexpr size_t kPathResultSize = 512;

char* HeapResult(const std::string& path) {
  char* result = new char[kPathResultSize]();
  std::strncpy(result, path.c_str(), kPathResultSize - 1);
  return result;
}

// Creates the directory and goes on whatever came of it: the file that cannot be opened there tells.
const std::string& Created(const std::string& directory) {
  SafeMakeDir(directory.c_str());
  return directory;
}

}  // namespace
}  // namespace record

using record::Created;

int GetStorageMediaIndex(const RecordConfig*, int needMB) try {
  for (int medium = 0; medium < record::kLocalMediumCount; ++medium) {
    if (!record::IsMounted(medium)) continue;
    const std::string root = record::MediumBase(medium);
    const int freeMB = GetStorageFreeSpace(medium);
    const double used = GetStorageUsedPercentage(medium);
    RECORD_LOG("storage %s mounted, free space=%dM, use percent=%f.\n\n", root.c_str(), freeMB, used);
    if (freeMB > needMB) return medium;
  }
  RECORD_LOG("all mounted storage free space is less than %dM\n\n", needMB);
  return -1;
}
RECORD_NO_THROW(-1)

char* GetStoragePath(const RecordConfig* config, int recordtype, int needMB) try {
  if (config->local_enable == 0) return nullptr;
  const int medium = GetStorageMediaIndex(config, needMB);
  const bool fixedDirectory = record::HasFlag(record::flag::kIpcServer);
  if (!fixedDirectory && medium < 0) return nullptr;

  const char* base = fixedDirectory ? record::kTmpDirectory : record::kMediumRoots[medium];
  const std::string kind = Created(DevicePath(base) + record::KindDirectory(recordtype));
  if (fixedDirectory) return record::HeapResult(Created(record::JoinPath(kind, "alarm")));
  return record::HeapResult(Created(record::DayDirectory(kind, record::LocalNow())));
}
RECORD_NO_THROW(nullptr)

char* GetNetworkStoragePath(const RecordConfig* config, int recordtype, int) try {
  if (config->network_enable == 0) {
    RECORD_LOG_TEXT("network storage not enabled.\n\n");
    return nullptr;
  }
  if (!record::IsMounted(record::kNetworkShare)) {
    RECORD_LOG_TEXT("network storage not mounted.\n\n");
    return nullptr;
  }
  const std::string base = Created(record::MediumBase(record::kNetworkShare));
  const std::string kind = Created(base + record::KindDirectory(recordtype));
  return record::HeapResult(Created(record::DayDirectory(kind, record::LocalNow())));
}
RECORD_NO_THROW(nullptr)

char* GetTmpFsPath(const RecordConfig*, int recordtype, int) try {
  switch (recordtype) {
    case RECORD_KIND_MOTION:
    case RECORD_KIND_ALARM:
    case RECORD_KIND_MOTION + RECORD_KIND_SECOND_SET:
    case RECORD_KIND_ALARM + RECORD_KIND_SECOND_SET:
      return record::HeapResult(Created(DevicePath(record::kRamRecordDirectory)));
    default:
      return nullptr;
  }
}
RECORD_NO_THROW(nullptr)

std::string GetCreateTimelapsePath(const RecordConfig* config, int needMB) try {
  if (record::IsMounted(record::kNetworkShare))
    return Created(Created(record::MediumBase(record::kNetworkShare)) + "/timelapse");
  const int medium = GetStorageMediaIndex(config, needMB);
  if (medium < 0) return "";
  return Created(record::MediumBase(medium) + "/timelapse");
}
RECORD_NO_THROW({})

struct tm* TimeStampGetTm(double milliseconds) {
  const time_t seconds = static_cast<time_t>(std::floor(milliseconds / 1000));
  return localtime(&seconds);  // NOLINT(concurrency-mt-unsafe): the static buffer is the interface
}

int TimeStampGetMis(double milliseconds) {
  return static_cast<int>(std::floor(milliseconds - std::floor(milliseconds / 1000) * 1000));
}
