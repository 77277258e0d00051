#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "nvxcore/platform/Threading.h"

namespace nvxcore {

/// The threading seam of the platform, which also knows the threads that were started through it and still
/// run.
class TrackedThreading final : public Threading {
 public:
  explicit TrackedThreading(std::shared_ptr<Threading> threading);

  std::unique_ptr<ThreadHandle> startThread(const std::string& name, Task body) override;
  std::unique_ptr<Parker> makeParker() override { return _threading->makeParker(); }
  int64_t monotonicNanos() override { return _threading->monotonicNanos(); }
  int64_t wallClockNanos() override { return _threading->wallClockNanos(); }
  int64_t uptimeNanos() override { return _threading->uptimeNanos(); }
  bool timeIsManual() const override { return _threading->timeIsManual(); }
  std::shared_ptr<void> addJumpListener(std::function<void()> listener) override;

  /// In the order of their start.
  std::vector<std::string> names() const;
  /// Calls `handler` once no thread runs, on the last one or at once. At most one handler at a time.
  void whenNoneRuns(std::function<void()> handler);

 private:
  struct Registry;
  const std::shared_ptr<Threading> _threading;
  const std::shared_ptr<Registry> _registry;
};

}  // namespace nvxcore
