// From a time to a file, and which minutes and days hold recordings.
//
// No locks are taken; the functions run on the caller's thread while tasks may be recording. A type index that is
// just being written counts as far as it goes.
#ifndef RECORD_LOOKUPS_H
#define RECORD_LOOKUPS_H

#include <list>
#include <string>

#include "record/types.h"

// The record file that holds a second of a local day, as it is found on this machine, and how many seconds into it
// that second lies. Of all files that have not ended by then the one that starts first: a second between two files
// finds the later one at offset 0, and so does the very end of a file. 0; -1 when there is none, `path` and
// `offsetSeconds` are then left alone.
RECORD_API int GetRecordFileAndOffset(int year, int month, int day, int hour, int minute, int second,
                                      std::string& path, unsigned int& offsetSeconds);
// Among the files of stream number `streamIdx` or `streamIdx` + 1 (6: 4 or 6), see GetDayRecordInfo_by_streamIdx.
RECORD_API int GetRecordFileAndOffset_by_streamIdx(int year, int month, int day, int hour, int minute, int second,
                                                   std::string& path, unsigned int& offsetSeconds, int streamIdx);
// Among the MP4 files whose stream number ends in 1 or 2 (sensor 0), in 6 or 7 (every other sensor).
RECORD_API int GetRecordFileAndOffsetBySensorId(int year, int month, int day, int hour, int minute, int second,
                                                int sensorId, std::string& path, unsigned int& offsetSeconds);

// The kind of recording of each minute of a local day (hour * 60 + minute) into 1440 bytes: 'A' manual or
// scheduled, 'B' motion or alarm, 'C' none; other letters are those that the task was given (`rectype_code`). It
// is what the day's type indexes say. 0; -1 when there is no memory for the catalogue (the map is then all 'C').
RECORD_API int GetRecordDistribute(int year, int month, int day, char* minuteMap);
// The same over what the buffer holds: minutes without a recording are left alone. Of several indexes that mark a
// minute the last one wins, media in their order, of each manual, schedule, motion, alarm. -1 when `length` is not
// 1440.
RECORD_API int query_record_distribute_by_idxfile(int year, int month, int day, char* minuteMap, int length);

// Appends the local midnight (standard time) of every day of 2000 to 2999 that holds recordings, and sorts the
// list; each day once. The 1st of January 2000 is never in it: devices without a clock stand there. A `long` of 32
// bits is to be read unsigned. Returns 0.
RECORD_API int GetHasRecordDateList(std::list<long>& dates);

// 1 when the date is today's local date, else 0.
RECORD_API int IsTodayDate(int year, int month, int day);
// Seconds since local midnight, as the clock shows them (hour * 3600 + minute * 60 + second).
RECORD_API unsigned int GetSecondsOfToday();
// The number between the last '-' and the last '.' of a record file name; 1 when there is none of 1 to 7
// characters, or when it is below 1.
RECORD_API int record_get_sensor_chn(char* fileName);

#endif
