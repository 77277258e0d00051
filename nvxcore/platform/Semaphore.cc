#include "nvxcore/platform/Semaphore.h"

#include <algorithm>
#include <utility>

#include "nvxcore/platform/Platform.h"
#include "nvxcore/platform/Threading.h"
#include "nvxcore/platform/internal/Deadline.h"
#include "nvxcore/platform/internal/WorkerPool.h"

namespace nvxcore {

Semaphore::Semaphore(int64_t initialCount) : _count(initialCount) {}

Semaphore::~Semaphore() = default;

bool Semaphore::wait(TimeInterval timeout) {
  switchPoint();
  if (!(timeout > 0)) {
    int64_t count = _count.load(std::memory_order_relaxed);
    while (count > 0) {
      if (_count.compare_exchange_weak(count, count - 1, std::memory_order_acquire)) return true;
    }
    return false;
  }
  if (_count.fetch_sub(1, std::memory_order_acquire) > 0) return true;
  return waitInLine(timeout);
}

/// Counted as a waiter already.
bool Semaphore::waitInLine(TimeInterval timeout) {
  Threading& threading = *Platform::current().threading;
  const int64_t deadline = deadlineAfter(threading.monotonicNanos(), timeout);
  std::shared_ptr<Parker> parker;
  {
    Lock lock(_mutex);
    if (_owed > 0) {
      --_owed;
      return true;
    }
    parker = threading.makeParker();
    _waiters.push_back(parker);
  }
  WorkerPool::settleHandOff();
  if (parkUntilDeadline(*parker, deadline)) return true;
  {
    Lock lock(_mutex);
    // Not there: a signal came at this very moment, and what it does with the parker is all but done.
    const auto self = std::find(_waiters.begin(), _waiters.end(), parker);
    if (self == _waiters.end()) return true;
    int64_t count = _count.load(std::memory_order_relaxed);
    while (count < 0) {
      if (!_count.compare_exchange_weak(count, count + 1, std::memory_order_relaxed)) continue;
      _waiters.erase(self);
      return false;
    }
  }
  // As many signals as there are waiters are on their way to the line.
  parker->park();
  return true;
}

void Semaphore::wakeFirst() {
  std::shared_ptr<Parker> woken;
  {
    Lock lock(_mutex);
    if (_waiters.empty()) {
      ++_owed;  // The waiter that was counted is not in line yet.
      return;
    }
    woken = std::move(_waiters.front());
    _waiters.erase(_waiters.begin());
  }
  woken->unpark();
}

}  // namespace nvxcore
