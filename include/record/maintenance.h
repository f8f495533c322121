// Keeping storage in order: finding and deleting the oldest recordings, the RAM record directory and the
// record-status flag file.
//
// The scans run on the caller's thread, take no lock and give the processor away for a moment at every entry.
// Where they take a `stop`, another thread may set it to non-zero at any time to cut them short; null: never.
// Symbolic links that lie on a medium are listed like files and never followed. A path that does not fit where it
// is to be stored is left out: cut, it would be the path of another file.
#ifndef RECORD_MAINTENANCE_H
#define RECORD_MAINTENANCE_H

#include <ctime>
#include <list>
#include <string>
#include <vector>

#include "record/types.h"

// ---------------------------------------------------------------------------- the oldest files, by their names

// Seconds since 1970 stand in a `long`. Where that has 32 bits it is to be read unsigned: it reaches to 2106.
struct OldFileInfo_s {
  long time;
  char path[256];
  OldFileInfo_s* prev;
  OldFileInfo_s* next;
};
#if defined(__arm__)
static_assert(sizeof(OldFileInfo_s) == 268);
#endif

// The time that a file's name tells: "HHMMSS..." of a video (".mp4", ".avi", ".kmv" anywhere in it) in a directory
// YYYYMMDD, "YYYYMMDD_HHMMSS..." of a picture (".jpg"). Standard time, as all names are read here. 1, or 0 for
// other names. `tmOut` may be null.
RECORD_API int isPrivFile(const char* dirPath, const char* fileName, long& time, struct tm* tmOut);
// 1 and the local midnight of a directory's name YYYYMMDD, else 0.
RECORD_API int isPrivDir(const char* name, long& time, struct tm* tmOut);
// The start of a record file, .../YYYYMMDD/HHMMSS...: sets the date and time fields of `tmOut`, no other. 0 or -1.
RECORD_API int GetRecordFileStartTime(const char* path, struct tm* tmOut);

// Adds the files directly in `dirPath` to a list that keeps the `maxCount` oldest, newest first; by name, others
// by their last change. `count` is the length of the list. Nodes are made with malloc, the caller frees them.
// `tail` is not used. Removes the directory when it is empty and
// no running task's. 0, or -1 when it cannot be opened.
RECORD_API int scanDir(const char* dirPath, OldFileInfo_s** head, OldFileInfo_s** tail, unsigned int maxCount,
                       unsigned int& count, int* stop);
// Adds the directories in `path` (and, with `recurse` 1 or more, all below them) to a list that stands oldest
// first. A directory that cannot be read leaves the flag file /mnt/nand/opendirfail.flag. 0, or -1 for such a one.
RECORD_API int findAllDirs(const char* path, OldFileInfo_s** head, int* stop, int recurse);
// The at most `maxCount` oldest files of a medium, newest of them first; null when there are none. The caller
// frees the nodes. `root` itself may be a symbolic link.
RECORD_API OldFileInfo_s* FindOldFiles(char* root, unsigned int maxCount, int* stop);
// Deletes the oldest day directories (YYYYMMDD) in `root`, a record-type directory, until `keepCount` are left.
// Files in use are not spared. Returns 0.
RECORD_API int DelOldDayDirs(char* root, unsigned int keepCount, int* stop);

// ----------------------------------------------------------------- the oldest files that no task is writing

struct _VrRecordFileInfo {  // NOLINT(bugprone-reserved-identifier): the interface's name
  long tTime;               // last change of the file's status
  long nReserved;           // 0
  std::string strPath;

  bool operator<(const _VrRecordFileInfo& other) const { return tTime < other.tTime; }
};

// Appends the files of `dir` that no task is writing to `files`, its directories to `subDirs`. Returns the number
// of files, -1 when it cannot be opened.
RECORD_API int ScanDirAndFile(const char* dir, std::list<_VrRecordFileInfo>& files,
                              std::vector<std::string>& subDirs);
// Appends those of a record-type directory and of its day directories, and sorts `files`, oldest first. Removes
// day directories that are empty, but not today's. `count` is not used. Returns 0.
RECORD_API int QueryPathOldFile(const char* typeDir, std::list<_VrRecordFileInfo>& files, unsigned int count);
// The `count` oldest ones of a medium, and one more; appended to `files`, all of it sorted. Keeps no more than
// that in memory. Returns 0.
RECORD_API int GetOldFileList(const char* root, std::list<_VrRecordFileInfo>& files, unsigned int count);

// ----------------------------------------------------------------------------------------------- deleting

enum DeleteResult : int {
  DELETE_FAILED = -1,  // errno tells why
  DELETE_DONE = 0,     // also when it was gone already
  DELETE_IN_USE = 1,   // not deleted
};

// Deletes a file that one of the scans found, a record file together with its ".info" and a lock file that a crash
// left. Whatever the scan saw: that nobody uses the file is asked again right before. In use is a record file (and
// its side files) that a task of this process or of another one is writing, or that TaskManagerSetFileUsing names,
// and everything else in the directory of a running task. Never follows a link, never deletes a directory.
RECORD_API int DeleteFreeFile(const char* path);

// ------------------------------------------------------------------------- the RAM directory, the status flag

// Empties `directory` when it holds a record file (".mp4", ".avi", ".kmv") whose last change is more than
// `maxAgeSeconds` ago. Returns 0.
RECORD_API int DelExpiredTmpRecordFile(const char* directory, int maxAgeSeconds);
// 1 when `directory` holds a record file, else 0 (also when it cannot be read).
RECORD_API int HasRecordFileInPath(const char* directory);

// Recording status, as the record thread reports it.
enum RecordStatus : int {
  RECORD_STATUS_IDLE = 1,  // a recording ended
  RECORD_STATUS_RECORDING = 2,
  RECORD_STATUS_INDEX_FAILED = 3,  // the day's type index could not be written
};

// Leaves `status` as one 32-bit word in /tmp/record_status.flag. Returns 0, also when it cannot be written.
RECORD_API int update_record_status_file(int status);

// Kept for callers of older versions: does nothing and returns -1.
RECORD_API int ExtractRecordFile();

#endif
