#include "tests/message/memory/CountingAllocator.h"

#include <malloc.h>

#include <atomic>
#include <cerrno>
#include <cstdint>

#if defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define NVXCORE_ALLOCATOR_IS_TAKEN
#endif
#endif
#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
#define NVXCORE_ALLOCATOR_IS_TAKEN
#endif

namespace {

std::atomic<size_t> calls{0};
std::atomic<size_t> bytes{0};
std::atomic<size_t> peak{0};

}  // namespace

#if !defined(NVXCORE_ALLOCATOR_IS_TAKEN)

extern "C" {
void* __libc_malloc(size_t size);                      // NOLINT(bugprone-reserved-identifier)
void* __libc_realloc(void* memory, size_t size);       // NOLINT(bugprone-reserved-identifier)
void* __libc_memalign(size_t alignment, size_t size);  // NOLINT(bugprone-reserved-identifier)
void* __libc_calloc(size_t count, size_t size);        // NOLINT(bugprone-reserved-identifier)
void __libc_free(void* memory);                        // NOLINT(bugprone-reserved-identifier)

namespace {

void* counted(void* memory) {
  if (!memory) return nullptr;
  ++calls;
  const size_t now = bytes += malloc_usable_size(memory);
  for (size_t before = peak; before < now && !peak.compare_exchange_weak(before, now);) {
  }
  return memory;
}
void uncount(void* memory) {
  if (memory) bytes -= malloc_usable_size(memory);
}

}  // namespace

void* malloc(size_t size) { return counted(__libc_malloc(size)); }
void* calloc(size_t count, size_t size) { return counted(__libc_calloc(count, size)); }
void* realloc(void* memory, size_t size) {
  uncount(memory);
  return counted(__libc_realloc(memory, size));
}
void* memalign(size_t alignment, size_t size) { return counted(__libc_memalign(alignment, size)); }
void* aligned_alloc(size_t alignment, size_t size) { return memalign(alignment, size); }
int posix_memalign(void** memory, size_t alignment, size_t size) {
  *memory = memalign(alignment, size);
  return *memory ? 0 : ENOMEM;
}
void free(void* memory) {
  uncount(memory);
  __libc_free(memory);
}
}

#endif

namespace nvxcore::testing {

bool allocationsAreCounted() {
#if defined(NVXCORE_ALLOCATOR_IS_TAKEN)
  return false;
#else
  return true;
#endif
}
AllocationCount allocationCount() { return {calls, bytes, peak}; }
void resetAllocationPeak() { peak = bytes.load(); }

}  // namespace nvxcore::testing
