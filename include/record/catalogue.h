// The day catalogue: which record files exist on a day and which seconds of it each one covers.
//
// No locks are taken; the functions run on the caller's thread while tasks may be recording the same day.
#ifndef RECORD_CATALOGUE_H
#define RECORD_CATALOGUE_H

#include <map>
#include <string>

#include "record/types.h"

struct RecordFileInfo {
  char szRootPath[48];         // on the device, without the device root: "/mnt/mmc0/schedule"
  char szFileName[48];         // relative to it: "20240131/081500-av-1.kmv"
  std::uint32_t nStartMinute;  // nStartSecond / 60
  std::uint32_t nEndMinute;    // nEndSecond / 60
  std::uint32_t nStartSecond;  // since local midnight of the file's day
  std::uint32_t nEndSecond;    // may run past 86399
};

// Ordered by start; owns its records (malloc): release it with Free_MapRecordFileInfo.
using DayRecordMap = std::map<unsigned int, RecordFileInfo*>;

// The files of one local day, keyed by start second; of two that start in the same second the first listed
// stays. Clears `map` first without releasing what it held. 0, also for a day without files; -1 when memory
// for the query cannot be had. A finished file whose side file claims more than it can hold gets its side
// file corrected.
RECORD_API int GetDayRecordInfo(int year, int month, int day, DayRecordMap& map);
// Only the files whose name carries stream number `streamIdx` or `streamIdx` + 1 (6: 4 or 6); of two that
// start in the same second the last listed stays.
RECORD_API int GetDayRecordInfo_by_streamIdx(int year, int month, int day, DayRecordMap& map, int streamIdx);
// Keyed by start second << 8 | sensor channel, so that several sensors' files stand side by side.
RECORD_API int GetDayRecordInfoEx(int year, int month, int day, DayRecordMap& map);
RECORD_API void Free_MapRecordFileInfo(DayRecordMap& map);

// Where a catalogued file is found on this machine. Without memory for it std::bad_alloc.
RECORD_API std::string RecordFilePath(const RecordFileInfo& file);

#endif
