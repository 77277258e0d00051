#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "nvxcore/platform/Mutex.h"
#include "nvxcore/platform/Threading.h"
#include "nvxcore/platform/internal/TimerHeap.h"

namespace nvxcore {

class Executors;

/// Posts delayed tasks to their queues when they are due, from one thread that starts with the first task and
/// ends when there was none for `kIdleSeconds`. It is not the main loop's thread, because that one may be a
/// host's, and because a task that is busy there must not delay other queues. All may be called on any
/// thread.
class TimerService {
 public:
  static constexpr TimeInterval kIdleSeconds = 5;

  /// `executors` owns the service.
  explicit TimerService(Executors& executors);

  void add(QueueRef queue, TimeInterval delay, Task task) NVX_EXCLUDES(_mutex);
  size_t armed() NVX_EXCLUDES(_mutex);
  int64_t nextDeadline() NVX_EXCLUDES(_mutex);
  /// Drops what is armed.
  void dropAll() NVX_EXCLUDES(_mutex);
  /// Ends the thread. Nothing may be added any more.
  void stop() NVX_EXCLUDES(_mutex);

 private:
  void run() NVX_EXCLUDES(_mutex);
  void postDue() NVX_EXCLUDES(_mutex);
  bool awaitNext() NVX_EXCLUDES(_mutex);

  Executors& _executors;
  const std::unique_ptr<Parker> _parker;

  Mutex _mutex;
  TimerHeap _heap NVX_GUARDED_BY(_mutex);
  bool _running NVX_GUARDED_BY(_mutex) = false;
  bool _stopped NVX_GUARDED_BY(_mutex) = false;
  int64_t _wakesAt NVX_GUARDED_BY(_mutex) = 0;  // what the thread waits for; in the past while it is awake
};

}  // namespace nvxcore
