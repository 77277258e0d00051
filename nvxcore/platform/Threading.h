#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "nvxcore/platform/Export.h"
#include "nvxcore/platform/Task.h"

namespace nvxcore {

/// Lets one thread wait until another wakes it. Holds at most one token: `unpark` stores it, `park` takes it.
/// One thread parks at a time; any thread may unpark.
class NVXCORE_EXPORT Parker {
 public:
  virtual ~Parker() = default;
  /// Returns once a token was taken; never spuriously.
  virtual void park() = 0;
  /// As `park`, but returns false without a token when the seam's monotonic clock reaches `deadlineNanos`.
  virtual bool parkUntil(int64_t deadlineNanos) = 0;
  virtual void unpark() = 0;
};

/// A started thread. Destroying the handle detaches it.
class NVXCORE_EXPORT ThreadHandle {
 public:
  virtual ~ThreadHandle() = default;
  /// Waits for the end of the thread. At most once, never from the thread itself.
  virtual void join() = 0;
};

/// The seam for threads, waiting and time. All threads of the library are started here, all waits go through
/// a `Parker` of it, and all time comes from it, so that a test form can run one thread at a time from a
/// seed, on virtual time, and replay a schedule exactly.
///
/// All operations may be called on any thread.
class NVXCORE_EXPORT Threading {
 public:
  virtual ~Threading() = default;

  /// Starts a thread whose name (at most 15 bytes are shown by the system) is `name`, with all signals
  /// blocked. Throws std::system_error when the system gives no more threads.
  virtual std::unique_ptr<ThreadHandle> startThread(const std::string& name, Task body) = 0;
  virtual std::unique_ptr<Parker> makeParker() = 0;

  /// Monotonic clock in nanoseconds, with an arbitrary zero.
  virtual int64_t monotonicNanos() = 0;
  /// Wall clock in nanoseconds since 1970-01-01 UTC.
  virtual int64_t wallClockNanos() = 0;
  /// Nanoseconds since the system was started.
  virtual int64_t uptimeNanos() = 0;

  /// True when time moves only where somebody advances it. Code that waits outside a `Parker` (for sockets,
  /// say) then waits without a time limit and listens for jumps.
  virtual bool timeIsManual() const { return false; }
  /// Calls `listener` on the advancing thread after each advance of manual time, until the returned token
  /// goes.
  virtual std::shared_ptr<void> addJumpListener(std::function<void()> listener);
};

}  // namespace nvxcore
