#pragma once

#include <atomic>

#include "nvxcore/platform/Mutex.h"
#include "nvxcore/platform/internal/PoolQueue.h"
#include "nvxcore/platform/internal/TaskList.h"

namespace nvxcore {

/// Runs one task at a time. The worker takes over all that waits at once, and runs it without the lock.
class SerialQueue final : public PoolQueue {
 public:
  SerialQueue(std::shared_ptr<Executors> executors, WorkerLane lane, std::string_view label);

  using Queue::post;
  void post(Task task) override NVX_EXCLUDES(_mutex);
  bool endsAfterTurn() override NVX_EXCLUDES(_mutex);
  QueueSnapshot snapshot() override NVX_EXCLUDES(_mutex);

 protected:
  void run() override NVX_EXCLUDES(_mutex);

 private:
  static constexpr size_t kGathered = 256;
  static constexpr int kMostLingerWorth = 4;

  bool takeBatch() NVX_EXCLUDES(_mutex);
  bool linger() NVX_EXCLUDES(_mutex);
  static void pause(int times);

  Mutex _mutex;
  TaskList _waiting NVX_GUARDED_BY(_mutex);
  // True from the post that finds the queue idle until its worker finds nothing more to run: one worker at
  // most.
  bool _scheduled NVX_GUARDED_BY(_mutex) = false;
  // The worker's alone, but for its size; apart from what posting writes, so that the two don't share a cache
  // line.
  alignas(64) TaskList _batch;
  std::atomic<size_t> _batchSize{0};
  // How often lingering may still be in vain before it is left out.
  int _lingerWorth = 0;
  unsigned _turnsWithoutLinger = 0;
};

}  // namespace nvxcore
