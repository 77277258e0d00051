#pragma once

#include <utility>

#include "nvxcore/platform/BackgroundTasks.h"
#include "nvxcore/platform/Mutex.h"

namespace nvxcore {

/// The number of a background task that two roads may end: who swaps it out ends it. Any thread.
class NVXDASHConnectionTaskID {
 public:
  /// Stores `taskID` and answers what was there.
  BackgroundTaskIdentifier swappedTaskID(BackgroundTaskIdentifier taskID) {
    Lock lock(_lock);
    return std::exchange(_taskID, taskID);
  }

 private:
  Mutex _lock;
  BackgroundTaskIdentifier _taskID NVX_GUARDED_BY(_lock) = kInvalidBackgroundTask;
};

}  // namespace nvxcore
