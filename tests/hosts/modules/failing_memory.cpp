#include "tests/hosts/modules/failing_memory.h"

#include <dlfcn.h>

#include <cstdlib>
#include <cstring>
#include <new>

namespace {

// Allocations until the first that is refused; negative for never.
thread_local int allocationsLeft = -1;
thread_local bool wasRefused = false;
thread_local const char* sparedLibraries = nullptr;

// Whether the code at that place belongs to a library that is to get its memory.
bool isSpared(const void* code) {
  Dl_info place{};
  return sparedLibraries != nullptr && dladdr(code, &place) != 0 && place.dli_fname != nullptr &&
         std::strstr(place.dli_fname, sparedLibraries) != nullptr;
}

}  // namespace

// The whole process's, that of the libraries it loads as well.
__attribute__((visibility("default"))) void* operator new(std::size_t size) {
  if (allocationsLeft >= 0 && !isSpared(__builtin_return_address(0))) {
    if (allocationsLeft == 0) {
      wasRefused = true;
      throw std::bad_alloc();
    }
    --allocationsLeft;
  }
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

FailingMemory::FailingMemory(int allocation, const char* spared) {
  wasRefused = false;
  sparedLibraries = spared;
  allocationsLeft = allocation;
}

FailingMemory::~FailingMemory() {
  allocationsLeft = -1;
}

bool FailingMemory::hasFailed() {
  return wasRefused;
}

}  // namespace tervano::test
