#pragma once

#include <atomic>
#include <cstdint>
#include <limits>
#include <memory>
#include <vector>

#include "nvxcore/platform/Export.h"
#include "nvxcore/platform/Mutex.h"
#include "nvxcore/platform/TimeInterval.h"

namespace nvxcore {

class Parker;

/// A counting semaphore over the threading seam. May be used on any thread; waiters are served in order.
class NVXCORE_EXPORT Semaphore {
 public:
  /// `initialCount` is not negative.
  explicit Semaphore(int64_t initialCount);
  ~Semaphore();
  Semaphore(const Semaphore&) = delete;
  Semaphore& operator=(const Semaphore&) = delete;

  void wait() {
    switchPoint();
    if (_count.fetch_sub(1, std::memory_order_acquire) <= 0) [[unlikely]]
      waitInLine(std::numeric_limits<TimeInterval>::infinity());
  }
  /// False when `timeout` seconds passed first; 0 or less only looks.
  bool wait(TimeInterval timeout);
  void signal() {
    switchPoint();
    if (_count.fetch_add(1, std::memory_order_release) < 0) [[unlikely]]
      wakeFirst();
  }

 private:
  /// The test form that runs one thread at a time may switch threads here, as at a lock.
  static void switchPoint() {
    if (LockObserver* observer = LockObserver::current.load(std::memory_order_acquire)) [[unlikely]] {
      observer->willLock();
      observer->didUnlock();
    }
  }
  bool waitInLine(TimeInterval timeout);
  void wakeFirst();

  // Below 0: how many waiters no signal has been given for. Only they take the lock, and who signals to them.
  std::atomic<int64_t> _count;
  Mutex _mutex;
  // Signals whose waiter has not come to the line yet.
  int64_t _owed NVX_GUARDED_BY(_mutex) = 0;
  std::vector<std::shared_ptr<Parker>> _waiters NVX_GUARDED_BY(_mutex);
};

}  // namespace nvxcore
