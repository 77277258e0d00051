#pragma once

#include <atomic>
#include <cstddef>
#include <thread>

#include "nvxcore/platform/Mutex.h"

namespace nvxcore {

/// A lock that the thread that holds it may take again: for objects whose observers are called under the lock
/// and may ask the object. Everything else takes a `Mutex`.
class NVX_CAPABILITY("mutex") ReentrantMutex {
 public:
  ReentrantMutex() = default;
  ReentrantMutex(const ReentrantMutex&) = delete;
  ReentrantMutex& operator=(const ReentrantMutex&) = delete;

  void lock() NVX_ACQUIRE() NVX_NO_THREAD_SAFETY_ANALYSIS {
    const std::thread::id self = std::this_thread::get_id();
    // Only this thread can have stored its own id.
    if (_owner.load(std::memory_order_relaxed) != self) {
      _mutex.lock();
      _owner.store(self, std::memory_order_relaxed);
    }
    ++_depth;
  }
  void unlock() NVX_RELEASE() NVX_NO_THREAD_SAFETY_ANALYSIS {
    if (--_depth > 0) return;
    _owner.store(std::thread::id(), std::memory_order_relaxed);
    _mutex.unlock();
  }

 private:
  Mutex _mutex;
  std::atomic<std::thread::id> _owner{};
  size_t _depth = 0;  // of the owner
};

/// Holds a re-entrant mutex for a scope.
class NVX_SCOPED_CAPABILITY ReentrantLock {
 public:
  explicit ReentrantLock(ReentrantMutex& mutex) NVX_ACQUIRE(mutex) : _mutex(mutex) { _mutex.lock(); }
  ~ReentrantLock() NVX_RELEASE() { _mutex.unlock(); }
  ReentrantLock(const ReentrantLock&) = delete;
  ReentrantLock& operator=(const ReentrantLock&) = delete;

 private:
  ReentrantMutex& _mutex;
};

}  // namespace nvxcore
