#pragma once

#include <cstdint>
#include <memory>

#include "nvxcore/platform/Export.h"
#include "nvxcore/platform/TimeInterval.h"

namespace nvxcore {

/// A counting semaphore over the threading seam. May be used on any thread; waiters are served in order.
class NVXCORE_EXPORT Semaphore {
 public:
  /// `initialCount` is not negative.
  explicit Semaphore(int64_t initialCount);
  ~Semaphore();
  Semaphore(const Semaphore&) = delete;
  Semaphore& operator=(const Semaphore&) = delete;

  void wait();
  /// False when `timeout` seconds passed first; 0 or less only looks.
  bool wait(TimeInterval timeout);
  void signal();

 private:
  struct State;
  std::unique_ptr<State> _state;
};

}  // namespace nvxcore
