// The body of every record task's thread. The argument is the task, which the thread owns and deletes.
#ifndef RECORD_RECORD_THREAD_H
#define RECORD_RECORD_THREAD_H

void* RecordThread(void* task);

#endif
