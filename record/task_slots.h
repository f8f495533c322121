// What the record thread needs of the registry beside its exported functions.
#ifndef RECORD_TASK_SLOTS_H
#define RECORD_TASK_SLOTS_H

class CTaskbase;

namespace record {

// Empties whatever slots still hold the task, so that it may be deleted: one that was added twice has left only
// the first of its slots.
void EmptySlotsOf(const CTaskbase* task);

}  // namespace record

#endif
