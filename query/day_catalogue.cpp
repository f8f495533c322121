#include "query/day_catalogue.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <new>
#include <utility>

#include "base/log.h"
#include "base/no_throw.h"
#include "record/lookups.h"
#include "record/storage.h"
#include "storage/record_info.h"

namespace record {
namespace {

constexpr unsigned kUntrustedSeconds = 20;  // at most so long ...
constexpr int kTrustedVideoFrames = 180;    // ... with so many frames: the side file's times are wrong
constexpr int kTrustedAudioFrames = 180;
constexpr unsigned kAssumedVideoRate = 15;
constexpr unsigned kAssumedAudioRate = 25;

template <typename T>
MallocPtr<T> Zeroed() {
  return MallocPtr<T>(static_cast<T*>(std::calloc(1, sizeof(T))));
}

// REQUIRES: `from` is shorter than the field, which is zero.
template <size_t size>
void CopyText(char (&to)[size], std::string_view from) {
  std::memcpy(to, from.data(), from.size());
}

template <size_t size>
std::string_view Text(const char (&field)[size]) {  // a field of the platform need not be terminated
  return {field, strnlen(field, size)};
}

bool HaveSameSpan(const RecordInfoStruct& a, const RecordInfoStruct& b) {
  return a.startSeconds == b.startSeconds && a.startMicroseconds == b.startMicroseconds &&
         a.endSeconds == b.endSeconds && a.endMicroseconds == b.endMicroseconds;
}

}  // namespace

CatalogueWalk::CatalogueWalk(const CataloguePolicy& policy, int year, int month, int day, DayRecordMap& map)
    : m_policy(policy),
      m_year(year),
      m_month(month),
      m_day(day),
      m_map(map),
      m_wantedStream(policy.streamIdx),
      m_deviceRoot(GetDeviceRoot()) {}

int CatalogueWalk::Run() {
  LogQuery();
  m_map.clear();
  auto condition = Zeroed<REPLAY_QUERY_CONDITION>();
  if (condition == nullptr) {
    RECORD_LOG_TEXT("new REPLAY_QUERY_CONDITION failed.");
    return -1;
  }
  condition->channel = -1;
  condition->begin.tm_mday = m_day;
  condition->begin.tm_mon = m_month - 1;
  condition->begin.tm_year = m_year - 1900;
  condition->end = condition->begin;
  condition->end.tm_hour = 23;
  condition->end.tm_min = 59;
  condition->end.tm_sec = 59;
  for (std::int32_t& filter : condition->filter) filter = -1;
  const REPLAY_QUERY_RESULT* listed = QueryRecordFile(condition.get());
  condition.reset();
  if (listed == nullptr) {
    RECORD_LOG_TEXT("p_query_result==NULL");
    return 0;
  }
  if (IsTodayDate(m_year, m_month, m_day) != 0) {
    m_reference = GetSecondsOfToday();
    LogToday();
  }
  for (; listed != nullptr; listed = listed->next) {
    try {
      Take(*listed);
    } catch (const std::bad_alloc&) {  // costs this file only, and goes no further than here
      RECORD_LOG_TEXT("malloc failed for RecordFileInfo");
    }
  }
  return 0;
}

void CatalogueWalk::LogQuery() const {
  switch (m_policy.variant) {
    case CataloguePolicy::Variant::kDay:
      RECORD_LOG("input query at %02d-%02d-%02d", m_year, m_month, m_day);
      break;
    case CataloguePolicy::Variant::kStream:
      RECORD_LOG_MODULE(kLogModuleLifecycle, "input %02d-%02d-%02d", m_year, m_month, m_day);
      break;
    case CataloguePolicy::Variant::kSensors:
      RECORD_LOG("input query at time %02d-%02d-%02d", m_year, m_month, m_day);
      break;
  }
}

void CatalogueWalk::LogToday() const {
  switch (m_policy.variant) {
    case CataloguePolicy::Variant::kDay:
      RECORD_LOG_TEXT("Search today!");
      break;
    case CataloguePolicy::Variant::kStream:
      RECORD_LOG_MODULE_TEXT(kLogModuleLifecycle, "Search today!");
      break;
    case CataloguePolicy::Variant::kSensors:
      RECORD_LOG("Search today! lastFileBeginTime:%u!", m_reference);
      break;
  }
}

void CatalogueWalk::Take(const REPLAY_QUERY_RESULT& listed) {
  const std::string_view root = Text(listed.szRootPath);
  m_name = Text(listed.szFileName);
  const char* name = m_name.c_str();
  if (!IsRecordFileName(name)) return;
  if (m_policy.FiltersStream() && !IsWantedStream(name)) return;
  if (root.size() >= sizeof(RecordFileInfo::szRootPath) || m_name.size() >= sizeof(RecordFileInfo::szFileName)) {
    RECORD_LOG("record file:%s/%s: the name is too long", std::string(root).c_str(), name);
    return;
  }

  m_recordPath.assign(m_deviceRoot).append(root).append(1, '/').append(m_name);
  m_infoPath.assign(m_recordPath).append(kInfoExtension);
  RecordInfoStruct info;
  const NameTime time = ParseNameTime(name);
  if (!ReadInfo(info) || !IsOfDay(time)) return;
  auto file = Zeroed<RecordFileInfo>();
  if (file == nullptr) {
    RECORD_LOG_TEXT("malloc failed for RecordFileInfo");
    return;
  }
  CopyText(file->szRootPath, root);
  CopyText(file->szFileName, m_name);
  RepairDuration(info);
  file->nStartSecond = time.SecondOfDay();
  file->nEndSecond = file->nStartSecond + std::min(info.nTimeSeconds, UINT32_MAX - file->nStartSecond);
  Clip(*file, info);
  file->nStartMinute = file->nStartSecond / 60;
  file->nEndMinute = file->nEndSecond / 60;
  m_reference = file->nStartSecond;
  Insert(std::move(file));
}

// The number behind the first tag that the name has. A name without a tag is compared as if stream 1 were
// wanted, with the number found last, and so is the rest of the walk: kept, callers know it so.
bool CatalogueWalk::IsWantedStream(const char* name) {
  if (std::strstr(name, "-av-") != nullptr)
    std::sscanf(name, "%*[^-]-av-%d", &m_streamNumber);
  else if (std::strstr(name, "-vv-") != nullptr)
    std::sscanf(name, "%*[^-]-vv-%d", &m_streamNumber);
  else if (std::strstr(name, "-sv-") != nullptr)
    std::sscanf(name, "%*[^-]-sv-%d", &m_streamNumber);
  else
    m_wantedStream = 1;
  if (m_wantedStream == 6) return m_streamNumber == 4 || m_streamNumber == 6;
  return m_streamNumber == m_wantedStream || m_streamNumber == static_cast<long long>(m_wantedStream) + 1;
}

bool CatalogueWalk::ReadInfo(RecordInfoStruct& info) {
  const unsigned before = GetCurrentTimeStamp();
  const DayDirectories::Place place = m_directories.Find(m_infoPath);
  const int size = ReadRecordInfoAt(place.directory, place.path, info);
  RECORD_LOG("Find record file:%s and open it spend %d ms", m_recordPath.c_str(),
             static_cast<int>(GetCurrentTimeStamp() - before));
  if (size < 0) {
    if (m_policy.variant == CataloguePolicy::Variant::kSensors)
      RECORD_LOG_MODULE(kLogModuleLifecycle, "Open file:%s failed!", m_infoPath.c_str());
    return false;
  }
  if (size != static_cast<int>(sizeof info)) {
    RECORD_LOG("record file:%s: read size %d not equal to %d", m_recordPath.c_str(), size,
               static_cast<int>(sizeof info));
    return false;
  }
  info.nTimeSeconds = RecordInfoSeconds(info);
  const int module = m_policy.FiltersStream() ? kLogModuleLifecycle : kLogModule;
  RECORD_LOG_MODULE(module, "record file:%s: from %u to %u, nTimeSeconds %u", m_recordPath.c_str(),
                    info.startSeconds, info.endSeconds, info.nTimeSeconds);
  return true;
}

bool CatalogueWalk::IsOfDay(const NameTime& time) const {
  if (time.year == m_year && time.month == m_month && time.day == m_day) return true;
  if (m_policy.variant == CataloguePolicy::Variant::kSensors)
    RECORD_LOG("record file:%s not correct at time: %d-%d-%d", m_recordPath.c_str(), time.year, time.month,
               time.day);
  else
    RECORD_LOG("record file:%s not correct at time:%d-%d-%d", m_recordPath.c_str(), time.year, time.month,
               time.day);
  return false;
}

void CatalogueWalk::RepairDuration(RecordInfoStruct& info) const {
  if (info.nTimeSeconds > kUntrustedSeconds || info.videoFrames < kTrustedVideoFrames) return;
  RECORD_LOG("#### fileInfo.nTimeSeconds (%d) < 20, something wrong, corrent it",
             static_cast<int>(info.nTimeSeconds));
  info.nTimeSeconds = info.audioFrames <= kTrustedAudioFrames
                          ? static_cast<unsigned>(info.videoFrames) / kAssumedVideoRate
                          : static_cast<unsigned>(info.audioFrames) / kAssumedAudioRate;
}

void CatalogueWalk::Clip(RecordFileInfo& file, RecordInfoStruct& info) const {
  const unsigned start = file.nStartSecond;
  if (m_reference == 0 || start >= m_reference || m_reference >= file.nEndSecond) return;
  if (start + m_policy.ShortestClip() > m_reference) return;
  if (m_policy.FiltersStream())
    RECORD_LOG("%s/%s: change end time to %u", file.szRootPath, file.szFileName, m_reference);
  else
    RECORD_LOG("change end time to %u", m_reference);
  file.nEndSecond = m_reference;
  const RecordInfoStruct read = info;
  info.nTimeSeconds = m_reference - start;
  info.endSeconds = info.startSeconds + info.nTimeSeconds;
  info.endMicroseconds = 0;
  const std::string lockFile = LockFilePath(file.szFileName);
  RECORD_LOG("szRecordingLockFile:%s", lockFile.c_str());
  if (access(lockFile.c_str(), F_OK) == 0) return;  // being recorded: its writer owns the side file
  // Its writer may have ended it since its side file was read: that record is the right one.
  RecordInfoStruct stored;
  if (ReadRecordInfo(m_infoPath, stored) != static_cast<int>(sizeof stored) || !HaveSameSpan(stored, read)) return;
  RECORD_LOG_TEXT("Correct info file");
  WriteRecordInfo(m_infoPath, info);
}

void CatalogueWalk::Insert(MallocPtr<RecordFileInfo> file) {
  if (m_policy.DropsSameName() && !m_names.insert(file->szFileName).second) return;
  unsigned key = file->nStartSecond;
  if (m_policy.KeysBySensor())
    key = (key << 8) | (static_cast<unsigned>(record_get_sensor_chn(file->szFileName)) & 0xff);
  // Newest first, so nearly every file belongs in front of all others.
  RecordFileInfo*& place = m_map.try_emplace(m_map.begin(), key)->second;
  if (place != nullptr && !m_policy.LastWins()) return;
  std::free(place);
  place = file.release();
}

}  // namespace record

using record::CataloguePolicy;
using record::CatalogueWalk;

int GetDayRecordInfo(int year, int month, int day, DayRecordMap& map) try {
  return CatalogueWalk({CataloguePolicy::Variant::kDay, 0}, year, month, day, map).Run();
}
RECORD_NO_THROW(-1)

int GetDayRecordInfo_by_streamIdx(int year, int month, int day, DayRecordMap& map, int streamIdx) try {
  return CatalogueWalk({CataloguePolicy::Variant::kStream, streamIdx}, year, month, day, map).Run();
}
RECORD_NO_THROW(-1)

int GetDayRecordInfoEx(int year, int month, int day, DayRecordMap& map) try {
  return CatalogueWalk({CataloguePolicy::Variant::kSensors, 0}, year, month, day, map).Run();
}
RECORD_NO_THROW(-1)

void Free_MapRecordFileInfo(DayRecordMap& map) {
  for (auto& entry : map) std::free(entry.second);
  map.clear();
}

std::string RecordFilePath(const RecordFileInfo& file) {
  const std::string_view parts[] = {GetDeviceRoot(), file.szRootPath, "/", file.szFileName};
  std::string path;
  path.reserve(parts[0].size() + sizeof file.szRootPath + 1 + sizeof file.szFileName);
  for (const std::string_view part : parts) path += part;
  return path;
}
