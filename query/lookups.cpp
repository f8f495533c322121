#include "record/lookups.h"

#include <cstdio>
#include <cstring>

#include "base/clock.h"
#include "base/log.h"
#include "base/no_throw.h"
#include "query/day_catalogue.h"
#include "record/storage.h"

namespace record {
namespace {

unsigned SecondOfDay(int hour, int minute, int second) {
  return static_cast<unsigned>(hour) * 3600 + static_cast<unsigned>(minute) * 60 + static_cast<unsigned>(second);
}

bool AnyFile(unsigned, const RecordFileInfo&) {
  return true;
}

// The earliest file that `accepts` takes and that has not ended by then; null when there is none. It is asked of
// the files in the map's order.
template <typename Accepts>
const RecordFileInfo* FindFile(const DayCatalogue& day, unsigned target, const Accepts& accepts) {
  for (const auto& [key, file] : day.map) {
    if (accepts(key, *file) && file->nEndSecond > target) return file;
  }
  return nullptr;
}

// What all lookups tell of a file that they found, behind `head`.
void Answer(const char* head, const RecordFileInfo& file, unsigned target, std::string& path, unsigned& offset) {
  path = RecordFilePath(file);
  offset = file.nStartSecond < target ? target - file.nStartSecond : 0;
  RECORD_LOG("%s%s: %u:%u-%u:%u, to findsecons=%u, offsetseconds=%d", head, path.c_str(), file.nStartMinute,
             file.nStartSecond, file.nEndMinute, file.nEndSecond, target, static_cast<int>(offset));
}

// Sensors are told apart by the stream number in front of the extension.
bool IsOfSensor(const char* name, bool isFirst) {
  return std::strstr(name, isFirst ? "1.mp4" : "6.mp4") != nullptr ||
         std::strstr(name, isFirst ? "2.mp4" : "7.mp4") != nullptr;
}

}  // namespace
}  // namespace record

using record::Answer;
using record::DayCatalogue;
using record::FindFile;
using record::SecondOfDay;

int GetRecordFileAndOffset(int year, int month, int day, int hour, int minute, int second, std::string& path,
                           unsigned int& offsetSeconds) try {
  DayCatalogue found;
  if (GetDayRecordInfo(year, month, day, found.map) != 0) {
    // The last two bytes are an exclamation mark in GB2312.
    RECORD_LOG("Get record at %02d-%02d-%02d %02d:%d02d:%02d failed\xa3\xa1", year, month, day, hour, minute,
               second);
    return -1;
  }
  RECORD_LOG("Get record at %02d-%02d-%02d %02d:%d02d:%02d record info size:%d, ", year, month, day, hour, minute,
             second, found.Size());
  std::printf("[%s, %5d] Get record at %d-%d-%d %02d:%d02d:%02d, map_dayRecordInfo size:%d\n", __func__, __LINE__,
              year, month, day, hour, minute, second, found.Size());
  const char* const function = __func__;
  const auto tell = [function](unsigned key, const RecordFileInfo& file) {
    std::printf("[%s, %5d] szInfoFile -->i:%d:%s%s/%s \n", function, __LINE__, static_cast<int>(key),
                GetDeviceRoot(), file.szRootPath, file.szFileName);
    return true;
  };
  const unsigned target = SecondOfDay(hour, minute, second);
  const RecordFileInfo* file = FindFile(found, target, tell);
  if (file == nullptr) {
    RECORD_LOG("Cannot get recordfile for %04d-%02d-%02d %02d:%02d:%02d", year, month, day, hour, minute, second);
    return -1;
  }
  Answer("Find record file:", *file, target, path, offsetSeconds);
  return 0;
}
RECORD_NO_THROW(-1)

int GetRecordFileAndOffset_by_streamIdx(int year, int month, int day, int hour, int minute, int second,
                                        std::string& path, unsigned int& offsetSeconds, int streamIdx) try {
  DayCatalogue found;
  if (GetDayRecordInfo_by_streamIdx(year, month, day, found.map, streamIdx) != 0) {
    RECORD_LOG("Get %02d-%02d-%02d %02d record info failed.", year, month, day, hour);
    return -1;
  }
  RECORD_LOG("%d-%d-%d", year, month, day);
  const unsigned target = SecondOfDay(hour, minute, second);
  const RecordFileInfo* file = FindFile(found, target, record::AnyFile);
  if (file == nullptr) {
    RECORD_LOG("Cannot get recordfile for %04d-%02d-%02d %02d:%02d:%02d", year, month, day, hour, minute, second);
    return -1;
  }
  Answer("", *file, target, path, offsetSeconds);
  return 0;
}
RECORD_NO_THROW(-1)

int GetRecordFileAndOffsetBySensorId(int year, int month, int day, int hour, int minute, int second, int sensorId,
                                     std::string& path, unsigned int& offsetSeconds) try {
  DayCatalogue found;
  if (GetDayRecordInfoEx(year, month, day, found.map) != 0) {
    RECORD_LOG("Get record ex at %02d-%02d-%02d %02d:%02d:%2d by sensor[%d] failed.", year, month, day, hour,
               minute, second, sensorId);
    return -1;
  }
  RECORD_LOG("Get record ex at time:%d-%d-%d %d:%d:%d by sensor[%d]! recordinfo size:%d!", year, month, day, hour,
             minute, second, sensorId, found.Size());
  std::printf("[%s, %5d] Get record ex at time:%d-%d-%d %d:%d:%d by sensor[%d]! recordinfo size:%d!\n", __func__,
              __LINE__, year, month, day, hour, minute, second, sensorId, found.Size());
  const auto isOfSensor = [sensorId](unsigned, const RecordFileInfo& file) {
    return record::IsOfSensor(file.szFileName, sensorId == 0);
  };
  const unsigned target = SecondOfDay(hour, minute, second);
  const RecordFileInfo* file = FindFile(found, target, isOfSensor);
  if (file == nullptr) {
    RECORD_LOG("Cannot get recordfile at %04d-%02d-%02d %02d:%02d:%02d by sensor[%d]", year, month, day, hour,
               minute, second, sensorId);
    return -1;
  }
  Answer("Find record file:", *file, target, path, offsetSeconds);
  return 0;
}
RECORD_NO_THROW(-1)

int IsTodayDate(int year, int month, int day) {
  const struct tm now = record::LocalNow();
  return year == now.tm_year + 1900 && month == now.tm_mon + 1 && day == now.tm_mday ? 1 : 0;
}

unsigned int GetSecondsOfToday() {
  const struct tm now = record::LocalNow();
  return static_cast<unsigned int>(now.tm_hour * 3600 + now.tm_min * 60 + now.tm_sec);
}

int record_get_sensor_chn(char* fileName) {
  constexpr int kDefault = 1;
  constexpr std::ptrdiff_t kLongest = 7;
  const char* dash = std::strrchr(fileName, '-');
  const char* dot = std::strrchr(fileName, '.');
  if (dash == nullptr || dot == nullptr || dot - dash <= 1 || dot - dash - 1 > kLongest) return kDefault;
  int channel = 0;
  for (const char* digit = dash + 1; digit != dot; ++digit) {
    if (*digit < '0' || *digit > '9') break;  // as far as the number goes
    channel = channel * 10 + (*digit - '0');
  }
  return channel >= kDefault ? channel : kDefault;
}
