// The two ends of every task's thread: it belongs to nobody, and the task belongs to it.
#ifndef RECORD_TASK_THREAD_H
#define RECORD_TASK_THREAD_H

class CTaskbase;

namespace record {

// Names and detaches the calling thread. False with a log line.
bool DetachTaskThread(const char* name);

// Takes the task out of the registry and deletes it.
void EndTask(CTaskbase* task);

}  // namespace record

#endif
