// The day's type index: one byte a minute of the local day, telling which kind of recording covered it.
#ifndef STORAGE_TYPE_INDEX_H
#define STORAGE_TYPE_INDEX_H

#include <string>

namespace record {

constexpr int kTypeIndexMinutes = 1440;
constexpr char kNoRecording = 'C';  // on disk, never renumber

inline int MinuteOfDay(int hour, int minute) {
  return hour * 60 + minute;
}

// Fills `minutes` (1440 bytes) with 'C' and reads the file over it. False when there is no file.
bool LoadTypeIndex(const std::string& path, char* minutes);

// What the file says of one minute; 'C' when it says nothing.
char ReadTypeIndexMinute(const std::string& path, int minute);

// Writes one minute of `minutes` into the file, or all of them into a new one.
bool StoreTypeIndexMinute(const std::string& path, const char* minutes, int minute);

// The type of the alarm log that belongs to a code set by hand: 'D' to 'O' have their own, all others 1.
int AlarmLogType(char code);

}  // namespace record

#endif
