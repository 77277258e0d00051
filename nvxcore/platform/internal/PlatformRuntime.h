#pragma once

#include <functional>
#include <memory>

#include "nvxcore/platform/Platform.h"
#include "nvxcore/platform/Queue.h"

namespace nvxcore {

class Executors;
class ThreadMainLoop;

/// The platform in force, with what runs on it. The one of the process is never destroyed, so that threads
/// still at work when the process leaves find everything in place; tests put others in its stead.
class PlatformRuntime {
 public:
  /// What `chosen` leaves empty is the real implementation.
  explicit PlatformRuntime(Platform chosen);
  ~PlatformRuntime();
  PlatformRuntime(const PlatformRuntime&) = delete;
  PlatformRuntime& operator=(const PlatformRuntime&) = delete;

  /// The one in force; settled by the first call.
  static PlatformRuntime& current();
  /// Chooses the seams of the runtime that `current` will settle on; false once it has.
  static bool choose(Platform platform);
  /// Puts `runtime` in force and answers the one before it; null stands for one that is not settled yet.
  static PlatformRuntime* exchange(PlatformRuntime* runtime);

  const Platform& platform() const { return _platform; }
  const std::shared_ptr<Executors>& executors() const { return _executors; }
  const QueueRef& mainQueue() const { return _mainQueue; }
  const QueueRef& globalQueue() const { return _globalQueue; }
  const QueueRef& blockingQueue() const { return _blockingQueue; }

  RuntimeSnapshot snapshot() const;
  size_t maximumThreadCount() const;

  /// No queue has work and no delayed task is due. The main loop of a host is not seen.
  bool atRest() const;
  /// Calls `handler` each time the runtime may have come to rest; an empty one for nobody.
  void setRestHandler(std::function<void()> handler);
  /// Drops delayed tasks that are not due.
  void dropDelayed();
  /// Lets go of the HTTP session service, whose threads end with it.
  void dropServices();
  /// Ends all threads. The runtime must be at rest; nothing may be posted any more.
  void stop();

 private:
  Platform _platform;
  std::shared_ptr<Executors> _executors;
  std::shared_ptr<ThreadMainLoop> _ownMainLoop;  // null when the host has one
  QueueRef _mainQueue;
  QueueRef _globalQueue;
  QueueRef _blockingQueue;
};

}  // namespace nvxcore
