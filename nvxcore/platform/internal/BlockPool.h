#pragma once

#include <cstddef>

namespace nvxcore {

/// Memory for small blocks that come and go (messages, data, requests): lists for each thread by size class,
/// bounded in bytes; what is freed beyond that, or by another thread than allocates, passes through a central
/// stock, bounded as well. Under the sanitizers every block is malloc's own. Any thread.
struct BlockPool {
  /// Not cleared. Throws std::bad_alloc.
  static void* allocate(size_t size);
  /// With the size that it was asked for.
  static void free(void* block, size_t size) noexcept;
  /// Gives the lists of this thread and the central stock back to the system.
  static void drain() noexcept;
};

}  // namespace nvxcore
