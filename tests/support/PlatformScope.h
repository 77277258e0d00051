#pragma once

#include <memory>
#include <string>

#include "nvxcore/platform/Platform.h"

namespace nvxcore {
class PlatformRuntime;
}

namespace nvxcore::testing {

class SteppedThreading;

/// Puts a platform of its own in force for a test: what `platform` leaves empty is the real implementation,
/// but for preferences, which then end with the scope.
/// At its end all queues are drained, delayed tasks that are not due are dropped, and all threads are ended.
/// The test fails if a queue is not drained within ten seconds, or a thread is left; the platform then stays
/// in memory.
///
/// Objects that live on the platform (queues, timers, services) must be gone, or at rest, before their scope
/// ends.
class PlatformScope {
 public:
  explicit PlatformScope(Platform platform = {});
  ~PlatformScope();
  PlatformScope(const PlatformScope&) = delete;
  PlatformScope& operator=(const PlatformScope&) = delete;

  /// Waits until no queue has work and no delayed task is due; fails the test if that takes ten seconds of
  /// real time. True when it came to rest.
  bool settle();

 private:
  bool awaitRest();
  bool endThreads();
  std::string describe() const;

  const std::shared_ptr<SteppedThreading> _stepped;  // null when threads are real
  std::unique_ptr<PlatformRuntime> _runtime;
  PlatformRuntime* const _before;
};

}  // namespace nvxcore::testing
