#pragma once

#include <cstddef>
#include <memory>
#include <utility>

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

/// A base of classes that `new` takes from the lists.
struct Pooled {
  static void* operator new(size_t size) { return BlockPool::allocate(size); }
  static void operator delete(void* block, size_t size) noexcept { BlockPool::free(block, size); }
};

/// For containers and `std::allocate_shared`: objects that come and go between threads.
template <class T>
struct PoolAllocator {
  using value_type = T;
  PoolAllocator() = default;
  template <class U>
  PoolAllocator(const PoolAllocator<U>&) {}  // NOLINT(google-explicit-constructor): as allocators convert
  T* allocate(size_t count) { return static_cast<T*>(BlockPool::allocate(count * sizeof(T))); }
  void deallocate(T* block, size_t count) noexcept { BlockPool::free(block, count * sizeof(T)); }
  template <class U>
  bool operator==(const PoolAllocator<U>&) const {
    return true;
  }
};

template <class T, class... Arguments>
std::shared_ptr<T> makePooled(Arguments&&... arguments) {
  static_assert(alignof(T) <= alignof(std::max_align_t));
  return std::allocate_shared<T>(PoolAllocator<T>(), std::forward<Arguments>(arguments)...);
}

}  // namespace nvxcore
