#pragma once

#include <cstddef>
#include <memory>
#include <utility>

#include "nvxcore/platform/internal/BlockPool.h"

namespace nvxcore {

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
