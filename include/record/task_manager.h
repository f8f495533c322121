// The registry of running tasks: ten slots. The application adds the tasks that it starts; a record thread
// removes its own. All functions may be called from any thread; paths are compared as text.
#ifndef RECORD_TASK_MANAGER_H
#define RECORD_TASK_MANAGER_H

#include "record/types.h"

class CTaskbase;

extern "C" {

// Empties the registry without stopping anything: call it once, before the first task. 1.
RECORD_API int TaskManagerInit(void);
// Stops and forgets every task; does not wait for their threads. 1.
RECORD_API int TaskManagerRelease(void);

// The slot taken, 0..9, or -1 when all are. A task that is there already takes a second slot.
RECORD_API int TaskManagerAddTask(CTaskbase* task);
// The slot emptied, or -1. Returns only when no in-use query can still be looking at the task, so that it
// may be deleted.
RECORD_API int TaskManagerRemoveTask(CTaskbase* task);

// Tasks of exactly this record type and, unless `stream` is -1, this stream selector.
RECORD_API int TaskManagerGetTaskCount(int recordType, int stream);
// The one in the lowest slot, or null. It may end at any time: use it only while you know that it runs.
RECORD_API CTaskbase* TaskManagerGetFirst(int recordType, int stream);

// Stops the tasks whose storage base begins with `prefix`, then waits up to 3.6 s until no task at all is
// registered. 0; -1 after that time or for an empty prefix.
RECORD_API int TaskManagerStopTaskOnStorage(const char* prefix);

// 1 or 0; -1 for a null or empty argument. They take no lock. Files on the network share are not protected.
RECORD_API int TaskManagerDirUsing(const char* directory);  // some task's storage base equals it
RECORD_API int TaskManagerFileUsing(const char* path);      // some task is writing exactly this file
RECORD_API int TaskManagerFullDirUsing(const char* part);   // it occurs within such a file's path

// One further path that is in use, by playback for example; at most 255 characters count.
RECORD_API int TaskManagerSetFileUsing(const char* path);  // 0
RECORD_API int TaskManagerIsFileUsing(const char* path);   // 1 or 0

// 1 when some task's mutex has been held longer than `milliseconds` (10000 when below 1000), with the source
// line that locked it and the platform's lock time; else 0.
RECORD_API int TaskIsBlockingTime(unsigned int milliseconds, unsigned int* line, unsigned int* time);

// A flag for the whole process that the application may use; the library neither sets nor reads it.
RECORD_API void TaskSetWriteFail(int failed);
RECORD_API int TaskGetWriteFail(void);

}  // extern "C"

#endif
