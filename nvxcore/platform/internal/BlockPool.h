#pragma once

#include <cstddef>
#include <cstdint>

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define NVX_POOLS_OFF 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer) || __has_feature(memory_sanitizer)
#define NVX_POOLS_OFF 1
#endif
#endif

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

#if !defined(NVX_POOLS_OFF)
  // What the two do where nothing is rare stands here, for those who call them for each message.

  struct Free {
    Free* next;
  };
  struct List {
    Free* first;
    size_t count;
  };

  // Steps of 16 bytes up to 512, then of 32: what a step wastes counts where messages are empty and many.
  static constexpr size_t kFineStep = 16;
  static constexpr size_t kFineLimit = 512;
  static constexpr size_t kFineCount = kFineLimit / kFineStep;
  static constexpr size_t kCoarseStep = 32;
  static constexpr size_t kLargest = 8192 + 64;  // a page-sized string with its header fits
  static constexpr size_t kClassCount = kFineCount + (kLargest - kFineLimit) / kCoarseStep;
  // A list is halved when it holds more than this, through the central stock.
  static constexpr size_t kListBytes = size_t{64} << 10;

  struct Magazine {
    List lists[kClassCount];
  };

  static constexpr size_t classOf(size_t size) {
    if (size <= kFineLimit) return (size - 1) / kFineStep;
    return kFineCount + (size - kFineLimit - 1) / kCoarseStep;
  }
  static constexpr size_t sizeOfClass(size_t index) {
    if (index < kFineCount) return (index + 1) * kFineStep;
    return kFineLimit + (index - kFineCount + 1) * kCoarseStep;
  }
  /// Blocks of a class that a list holds.
  struct Limits {
    constexpr Limits() {
      for (size_t i = 0; i < kClassCount; ++i) of[i] = static_cast<uint16_t>(kListBytes / sizeOfClass(i));
    }
    uint16_t of[kClassCount] = {};
  };
  static const Limits kLimits;

  // Plain, without a guard at each use: all zero is empty.
  static constinit thread_local Magazine* tMagazine __attribute__((tls_model("initial-exec")));

  static void* allocateElsewhere(size_t size);
  static void freeElsewhere(void* block, size_t size) noexcept;
#endif
};

#if !defined(NVX_POOLS_OFF)

inline void* BlockPool::allocate(size_t size) {
  if (size <= kLargest) [[likely]] {
    if (Magazine* magazine = tMagazine) [[likely]] {
      List& list = magazine->lists[classOf(size)];
      if (Free* block = list.first) [[likely]] {
        list.first = block->next;
        --list.count;
        return block;
      }
    }
  }
  return allocateElsewhere(size);
}

inline void BlockPool::free(void* block, size_t size) noexcept {
  if (size <= kLargest) [[likely]] {
    if (Magazine* magazine = tMagazine) [[likely]] {
      const size_t index = classOf(size);
      List& list = magazine->lists[index];
      if (list.count < kLimits.of[index]) [[likely]] {
        auto* free = static_cast<Free*>(block);
        free->next = list.first;
        list.first = free;
        ++list.count;
        return;
      }
    }
  }
  freeElsewhere(block, size);
}

#endif

}  // namespace nvxcore
