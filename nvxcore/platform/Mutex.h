#pragma once

#include <atomic>
#include <mutex>

#include "nvxcore/platform/Export.h"
#include "nvxcore/platform/ThreadAnnotations.h"

namespace nvxcore {

/// Sees every lock of the library being taken and given up. The test form that runs one thread at a time uses
/// it as a point to switch threads: before a lock is taken by a thread that holds none.
class NVXCORE_EXPORT LockObserver {
 public:
  virtual ~LockObserver() = default;
  virtual void willLock() = 0;
  virtual void didUnlock() = 0;

  static std::atomic<LockObserver*> current;
};

/// Tells the processor that this is a loop that waits for another one.
inline void pauseProcessor() {
#if defined(__x86_64__) || defined(__i386__)
  __builtin_ia32_pause();
#endif
}

/// A mutual exclusion lock. Never held while host code runs, while waiting, or while posting to the main
/// loop.
template <class Native>
class NVX_CAPABILITY("mutex") BasicMutex {
 public:
  BasicMutex() = default;
  BasicMutex(const BasicMutex&) = delete;
  BasicMutex& operator=(const BasicMutex&) = delete;

  void lock() NVX_ACQUIRE() {
    if (LockObserver* observer = LockObserver::current.load(std::memory_order_acquire)) observer->willLock();
    // What a lock guards takes less time than sleeping and being woken: look a few times before that.
    for (int looks = 0; looks < 64; ++looks) {
      if (_native.try_lock()) return;
      pauseProcessor();
    }
    _native.lock();
  }
  void unlock() NVX_RELEASE() {
    _native.unlock();
    if (LockObserver* observer = LockObserver::current.load(std::memory_order_acquire)) observer->didUnlock();
  }

 private:
  Native _native;
};

using Mutex = BasicMutex<std::mutex>;
/// For the objects whose behaviour asks for re-entry.
using RecursiveMutex = BasicMutex<std::recursive_mutex>;

/// Holds a mutex for a scope.
template <class M>
class NVX_SCOPED_CAPABILITY BasicLock {
 public:
  explicit BasicLock(M& mutex) NVX_ACQUIRE(mutex) : _mutex(mutex) { _mutex.lock(); }
  ~BasicLock() NVX_RELEASE() { _mutex.unlock(); }
  BasicLock(const BasicLock&) = delete;
  BasicLock& operator=(const BasicLock&) = delete;

 private:
  M& _mutex;
};

using Lock = BasicLock<Mutex>;
using RecursiveLock = BasicLock<RecursiveMutex>;

}  // namespace nvxcore
