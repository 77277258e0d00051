#include "nvxcore/platform/Mutex.h"

namespace nvxcore {

std::atomic<LockObserver*> LockObserver::current{nullptr};

void Mutex::waitAndTake() {
  // What a lock guards takes less time than sleeping and being woken: look a few times before that.
  for (int looks = 0; looks < 64; ++looks) {
    if (take()) return;
    pauseProcessor();
  }
  // Whoever comes through here can't know whether others wait as well, and leaves the lock marked as awaited.
  while (_state.exchange(kAwaited, std::memory_order_acquire) != kFree)
    _state.wait(kAwaited, std::memory_order_relaxed);
}

void Mutex::wakeOne() { _state.notify_one(); }

}  // namespace nvxcore
