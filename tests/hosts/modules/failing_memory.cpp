#include "tests/hosts/modules/failing_memory.h"

#include <cstdlib>
#include <new>

namespace {

// Allocations until the first that is refused; negative for never.
thread_local int allocationsLeft = -1;
thread_local bool wasRefused = false;

}  // namespace

// The whole process's, that of the libraries it loads as well.
__attribute__((visibility("default"))) void* operator new(std::size_t size) {
  if (allocationsLeft == 0) {
    wasRefused = true;
    throw std::bad_alloc();
  }
  if (allocationsLeft > 0) --allocationsLeft;
  if (void* const memory = std::malloc(size == 0 ? 1 : size)) return memory;
  throw std::bad_alloc();
}

__attribute__((visibility("default"))) void operator delete(void* memory) noexcept {
  std::free(memory);
}

__attribute__((visibility("default"))) void operator delete(void* memory,
                                                            std::size_t /*size*/) noexcept {
  std::free(memory);
}

namespace tervano::test {

FailingMemory::FailingMemory(int allocation) {
  allocationsLeft = allocation;
  wasRefused = false;
}

FailingMemory::~FailingMemory() {
  allocationsLeft = -1;
}

bool FailingMemory::hasFailed() {
  return wasRefused;
}

}  // namespace tervano::test
