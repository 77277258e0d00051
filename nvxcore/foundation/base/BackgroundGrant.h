#pragma once

#include <atomic>
#include <memory>
#include <string_view>
#include <utility>

#include "nvxcore/platform/BackgroundTasks.h"
#include "nvxcore/platform/Export.h"

namespace nvxcore {

/// Execution time in the background, granted until the first of the two ends: the work, or the system's
/// patience. The application is told once. Any thread.
class NVXCORE_EXPORT BackgroundGrant {
 public:
  /// Asks `tasks` for a grant; with nothing in `tasks`, or none granted, the grant is one in name only.
  static std::shared_ptr<BackgroundGrant> begin(std::shared_ptr<BackgroundTasks> tasks,
                                                std::string_view name);
  ~BackgroundGrant() { end(); }
  BackgroundGrant(const BackgroundGrant&) = delete;
  BackgroundGrant& operator=(const BackgroundGrant&) = delete;
  /// Harmless when repeated, or when the grant has expired.
  void end();

 private:
  explicit BackgroundGrant(std::shared_ptr<BackgroundTasks> tasks) : _tasks(std::move(tasks)) {}

  const std::shared_ptr<BackgroundTasks> _tasks;
  std::atomic<BackgroundTaskIdentifier> _task{kInvalidBackgroundTask};
  std::atomic<bool> _isOver{false};
};

}  // namespace nvxcore
