#pragma once

#include "nvxcore/platform/Threading.h"

namespace nvxcore {

/// POSIX threads with every signal blocked, parkers on futexes and the system's clocks.
class PosixThreading final : public Threading {
 public:
  /// Throws std::system_error when the system gives no more threads.
  std::unique_ptr<ThreadHandle> startThread(const std::string& name, Task body) override;
  std::unique_ptr<Parker> makeParker() override;
  int64_t monotonicNanos() override;
  int64_t wallClockNanos() override;
  /// Counts while the system sleeps, too.
  int64_t uptimeNanos() override;
};

}  // namespace nvxcore
