// The library's tasks, noting in the journal what they are asked to do and when that has returned.
#ifndef TESTS_TRUST_JOURNALED_TASK_H
#define TESTS_TRUST_JOURNALED_TASK_H

#include <atomic>
#include <memory>
#include <string>

#include "record/task.h"
#include "tests/trust/journal.h"

namespace trust {

// A task that records into files of that extension (".kmv"). `alive` becomes false when it is deleted.
std::unique_ptr<CRecordTask> NewJournaledTask(const std::string& extension, const RECORD_TASK_PARAM& param,
                                              const RecordConfig& config, Journal& journal,
                                              std::atomic<bool>& alive);

}  // namespace trust

#endif
