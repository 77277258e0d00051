#pragma once

#include <memory>

#include "nvxcore/platform/Threading.h"
#include "nvxcore/platform/TimeInterval.h"

namespace nvxcore::testing {

/// Real threads on a clock that only `advance` moves. Wall clock, monotonic clock and uptime move alike; at
/// the start they stand at 2020-01-01, 1000 s and 500 s.
class ManualTime final : public Threading {
 public:
  ManualTime();
  ~ManualTime() override;

  /// Moves the clocks, wakes those whose deadline has come, then calls the jump listeners.
  void advance(TimeInterval seconds);

  std::unique_ptr<ThreadHandle> startThread(const std::string& name, Task body) override;
  std::unique_ptr<Parker> makeParker() override;
  int64_t monotonicNanos() override;
  int64_t wallClockNanos() override;
  int64_t uptimeNanos() override;
  bool timeIsManual() const override { return true; }
  std::shared_ptr<void> addJumpListener(std::function<void()> listener) override;

 private:
  class ManualParker;
  struct State;
  const std::shared_ptr<Threading> _real;
  const std::shared_ptr<State> _state;
};

}  // namespace nvxcore::testing
