// Memory that runs out when a test says so, for the calling thread's `new`.
#ifndef TESTS_HOST_SUPPORT_SHORT_MEMORY_H
#define TESTS_HOST_SUPPORT_SHORT_MEMORY_H

namespace record {

// The allocation behind so many more fails, once.
void FailAllocationAfter(int allocations);
// No further one fails. Whether one has.
bool EndShortMemory();

}  // namespace record

#endif
