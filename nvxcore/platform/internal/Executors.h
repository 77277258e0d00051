#pragma once

#include <cstddef>
#include <memory>
#include <thread>
#include <utility>

#include "nvxcore/platform/internal/Activity.h"
#include "nvxcore/platform/internal/TaskList.h"
#include "nvxcore/platform/internal/TimerService.h"
#include "nvxcore/platform/internal/TrackedThreading.h"
#include "nvxcore/platform/internal/WorkerPool.h"

namespace nvxcore {

/// What the queues of one runtime run on. Queues and threads hold it, so that it outlives them.
class Executors : public std::enable_shared_from_this<Executors> {
 public:
  /// Workers of the queues whose tasks must not block.
  static constexpr size_t kMostWorkers = 64;
  /// Workers of the queue for tasks that block.
  static constexpr size_t kMostBlockingWorkers = 1024;
  /// Tasks of one concurrent queue that overlap at most. A constant, so that a schedule repeats on any
  /// machine.
  static constexpr size_t kConcurrentWidth = 8;

  explicit Executors(std::shared_ptr<TrackedThreading> threads)
      : threading(std::move(threads)),
        lingers(!threading->timeIsManual() && std::thread::hardware_concurrency() > 1),
        workers(*this, kMostWorkers, kMostBlockingWorkers),
        timers(*this) {}

  const std::shared_ptr<TrackedThreading> threading;
  /// Whether a queue without work waits a moment before it leaves its worker: another processor may be about
  /// to post.
  const bool lingers;
  // Each for itself in the cache: several threads write them at a time.
  alignas(64) Activity activity;
  alignas(64) TaskBlockStock blocks;
  alignas(64) WorkerPool workers;
  TimerService timers;
};

}  // namespace nvxcore
