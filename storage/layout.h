// Names of the storage tree: kind and day directories, record files and what lies beside them. Building and
// parsing stand side by side here.
#ifndef STORAGE_LAYOUT_H
#define STORAGE_LAYOUT_H

#include <ctime>
#include <string>
#include <string_view>

namespace record {

// "/schedule", "/manual", "/motion" or "/alarm"; the alarm directory takes every unknown kind.
const char* KindDirectory(int recordtype);
// "sched", "manual", "alarm"; every unknown kind is named "motion".
const char* KindTaskName(int recordtype);

std::string JoinPath(std::string_view directory, std::string_view name);  // "%s/%s"

std::string DayName(int year, int month, int day);  // "YYYYMMDD"
// "<parent>/YYYYMMDD"
std::string DayDirectory(const std::string& parent, const struct tm& day);

// The directory of `day` beside the day directory `directory`; a path that ends in no day is left as it is.
std::string DayDirectoryOf(const std::string& directory, const struct tm& day);

// "HHMMSS-av-1.kmv". `tag` is "av" (audio and video), "vv" (video only) or "sv" (time lapse).
std::string RecordFileName(const struct tm& start, const char* tag, int stream, const char* extension);
// Whether RecordFileName makes this very name.
bool IsRecordingName(const char* name);

// "YYYYMMDD_HHMMSS_n.jpg"
std::string PictureFileName(const struct tm& taken, int number);

// "cp <directory>/<name> <toDirectory>/<toName>" for a shell.
std::string CopyWords(const std::string& directory, const std::string& name, const std::string& toDirectory,
                      const std::string& toName);

constexpr char kInfoExtension[] = ".info";                   // of the side file, behind the record file's own
std::string InfoPath(const std::string& recordFile);         // "<record file>.info"
std::string RecordNameOf(const std::string& name);           // without a ".info" at its end
std::string TypeIndexPath(const std::string& dayDirectory);  // "<day>/rec_type.idx"
std::string FileListPath(const std::string& dayDirectory);   // "<day>/recordfiles.txt"
std::string LockFilePath(const struct tm& day, const char* recordFileName);  // "/tmp/YYYYMMDD<name>"
// The same from a name relative to a kind directory, "YYYYMMDD/<name>": cut to 127 characters, its last slash
// removed.
std::string LockFilePath(const char* dayAndName);

// The part of "YYYYMMDD/HHMMSS-..." that tells when a record file was begun. Positions are fixed; each piece
// is read as a decimal number as far as it goes (0 when it has no digit).
struct NameTime {
  int year, month, day, hour, minute, second;
  unsigned int SecondOfDay() const { return static_cast<unsigned>(hour * 3600 + minute * 60 + second); }
};
NameTime ParseNameTime(const char* dayAndName);

// The lenient readings of names that storage maintenance uses: what scanf takes as "%04d%02d%02d" and
// "%02d%02d%02d" at the begin of `text`. They set the three fields of `time` only, month and year as it counts
// them; values are not checked for their range. False when a number is missing.
bool ScanDay(const char* text, struct tm& time);
bool ScanClock(const char* text, struct tm& time);
// Whether a name is eight digits that could be a date.
bool IsDayName(const char* name);
// When a record file was begun, from its whole path, ".../YYYYMMDD/HHMMSS...": local time, ready for mktime. False
// when the path does not end so; `time` is left alone then.
bool ParsePathTime(const std::string& path, struct tm& time);
// The same as a second of the day and as seconds since 1970, taking daylight saving as mktime does (0: there is
// none; -1: as it was). 0 when the path does not tell.
unsigned int PathStartSecond(const std::string& path);
long long PathStartSeconds(const std::string& path, int daylightSaving);

// ".mp4", ".avi" or ".kmv" anywhere in a name marks a record file. What somebody keeps beside them may bear such a
// name, too: who deletes by names on his own asks IsRecordingName.
bool IsRecordFileName(const char* name);

}  // namespace record

#endif
