#pragma once

#include <cstdint>
#include <functional>
#include <memory>

#include "nvxcore/platform/Export.h"
#include "nvxcore/platform/Task.h"
#include "nvxcore/platform/TimeInterval.h"

namespace nvxcore {

/// The main thread of the process as the library needs it: a serial context with delayed work. By default the
/// library runs one on a thread of its own; a host that has a loop installs an adapter of this interface in
/// its `Platform`.
///
/// All operations but `turn` may be called on any thread.
class NVXCORE_EXPORT MainLoop {
 public:
  virtual ~MainLoop() = default;
  /// Runs `task` on the main thread, in the order of posting.
  virtual void post(Task task) = 0;
  /// Runs `task` on the main thread once `delay` seconds have passed. Answers a number for `cancel`.
  virtual uint64_t postAfter(TimeInterval delay, Task task) = 0;
  /// Drops delayed work that has not started; harmless otherwise.
  virtual void cancel(uint64_t delayedTask) = 0;
  virtual bool isCurrent() const = 0;
  /// On the main thread only: runs what is due. With nothing due, waits for it for at most `interval`
  /// seconds, and returns once something has run. Nests: the tasks behind the one that turns run within it,
  /// in their order.
  virtual void turn(TimeInterval interval) = 0;
};

/// A timer on the main loop, which holds it until it has fired for the last time or was invalidated. Created
/// and invalidated on any thread; fires on the main thread, never within its own handler. A repeating one
/// keeps its beat, and doesn't make up for firings that it missed.
class NVXCORE_EXPORT Timer : public std::enable_shared_from_this<Timer> {
 public:
  /// Fires `handler` once after `interval` seconds, or every `interval` seconds when `repeats`. `tolerance`
  /// seconds may pass beyond that, so that timers can share a wake-up.
  static std::shared_ptr<Timer> schedule(TimeInterval interval, TimeInterval tolerance, bool repeats,
                                         std::function<void(const std::shared_ptr<Timer>&)> handler);
  ~Timer();

  /// No firing begins after this returns on the main thread. Drops the handler. Harmless when repeated.
  void invalidate();
  bool isValid() const;
  TimeInterval interval() const;
  TimeInterval tolerance() const;

 private:
  struct State;
  explicit Timer(std::shared_ptr<State> state);
  std::shared_ptr<State> _state;
};

}  // namespace nvxcore
