#include "tests/host/support/short_memory.h"

#include <cstdlib>
#include <new>

namespace {

thread_local int t_left = -1;  // before the one that fails; -1: none does
thread_local bool t_hasFailed = false;

}  // namespace

namespace record {

void FailAllocationAfter(int allocations) {
  t_left = allocations;
  t_hasFailed = false;
}

bool EndShortMemory() {
  t_left = -1;
  return t_hasFailed;
}

}  // namespace record

void* operator new(std::size_t size) {
  if (t_left >= 0 && t_left-- == 0) {
    t_hasFailed = true;
    throw std::bad_alloc();
  }
  if (void* const memory = std::malloc(size == 0 ? 1 : size)) return memory;
  throw std::bad_alloc();
}

void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  try {
    return operator new(size);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

void operator delete(void* memory) noexcept {
  std::free(memory);
}

void operator delete(void* memory, std::size_t) noexcept {
  std::free(memory);
}
