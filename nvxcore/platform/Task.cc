#include "nvxcore/platform/Task.h"

#include "nvxcore/platform/internal/BlockPool.h"

namespace nvxcore {

void* TaskHeap::allocate(size_t size) { return BlockPool::allocate(size); }
void TaskHeap::free(void* block, size_t size) noexcept { BlockPool::free(block, size); }

}  // namespace nvxcore
