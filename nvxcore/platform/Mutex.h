#pragma once

#include <atomic>
#include <cstdint>

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

/// A mutual exclusion lock of 4 bytes, which neither makes nor frees anything. Never held while host code
/// runs, while waiting, or while posting to the main loop. Taking a free one and giving up one that nobody
/// waits for are each one atomic operation.
class NVXCORE_EXPORT NVX_CAPABILITY("mutex") Mutex {
 public:
  Mutex() = default;
  Mutex(const Mutex&) = delete;
  Mutex& operator=(const Mutex&) = delete;

  void lock() NVX_ACQUIRE() {
    if (LockObserver* observer = LockObserver::current.load(std::memory_order_acquire)) [[unlikely]]
      observer->willLock();
    if (!take()) [[unlikely]]
      waitAndTake();
  }
  void unlock() NVX_RELEASE() {
    if (_state.exchange(kFree, std::memory_order_release) == kAwaited) [[unlikely]]
      wakeOne();
    if (LockObserver* observer = LockObserver::current.load(std::memory_order_acquire)) [[unlikely]]
      observer->didUnlock();
  }

 private:
  enum State : uint32_t { kFree, kTaken, kAwaited };

  bool take() {
    uint32_t free = kFree;
    return _state.compare_exchange_strong(free, kTaken, std::memory_order_acquire, std::memory_order_relaxed);
  }
  void waitAndTake();
  void wakeOne();

  std::atomic<uint32_t> _state{kFree};
};

/// Holds a mutex for a scope.
class NVX_SCOPED_CAPABILITY Lock {
 public:
  explicit Lock(Mutex& mutex) NVX_ACQUIRE(mutex) : _mutex(mutex) { _mutex.lock(); }
  ~Lock() NVX_RELEASE() { _mutex.unlock(); }
  Lock(const Lock&) = delete;
  Lock& operator=(const Lock&) = delete;

 private:
  Mutex& _mutex;
};

/// Tells the processor that this is a loop that waits for another one.
inline void pauseProcessor() {
#if defined(__x86_64__) || defined(__i386__)
  __builtin_ia32_pause();
#endif
}

}  // namespace nvxcore
