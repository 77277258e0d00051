#pragma once

#include <cstdint>
#include <functional>
#include <string_view>

#include "nvxcore/platform/Export.h"

namespace nvxcore {

using BackgroundTaskIdentifier = uint64_t;
inline constexpr BackgroundTaskIdentifier kInvalidBackgroundTask = 0;

/// Grants of execution time while the application is in the background. The default grants every task and
/// never lets one expire. All operations may be called on any thread.
class NVXCORE_EXPORT BackgroundTasks {
 public:
  virtual ~BackgroundTasks() = default;
  /// Begins a task. When the system takes the grant back it calls `expirationHandler` on the main thread,
  /// once; the handler must end the task. Answers `kInvalidBackgroundTask` where nothing is granted.
  virtual BackgroundTaskIdentifier begin(std::string_view name, std::function<void()> expirationHandler) = 0;
  /// Ends a task. The handler is dropped and not called any more.
  virtual void end(BackgroundTaskIdentifier task) = 0;
};

}  // namespace nvxcore
