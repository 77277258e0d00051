#pragma once

#include <atomic>
#include <cstddef>
#include <memory>
#include <vector>

#include "nvxcore/platform/Mutex.h"
#include "nvxcore/platform/Threading.h"
#include "nvxcore/platform/internal/PoolQueue.h"

namespace nvxcore {

/// Threads that run queues. A queue with work goes to the worker that was parked last, else to a new one, and
/// stands in line once there are as many as may be. A worker that was parked for `kIdleSeconds` ends. All may
/// be called on any thread.
class WorkerPool {
 public:
  static constexpr TimeInterval kIdleSeconds = 5;

  /// `executors` owns the pool.
  WorkerPool(Executors& executors, const char* threadName, size_t mostWorkers);

  void submit(std::shared_ptr<PoolQueue> queue) NVX_EXCLUDES(_mutex);
  /// True while queues stand in line.
  bool hasLine() const { return _lineLength.load(std::memory_order_relaxed) > 0; }
  /// Ends the workers as they become idle. Nothing may be submitted any more.
  void stop() NVX_EXCLUDES(_mutex);

  /// Adds the queues that run or stand in line.
  void addQueues(std::vector<std::shared_ptr<PoolQueue>>& queues) NVX_EXCLUDES(_mutex);
  size_t busyWorkers() NVX_EXCLUDES(_mutex);
  size_t mostWorkers() const { return _mostWorkers; }

 private:
  struct Worker {
    std::shared_ptr<Parker> parker;
    std::shared_ptr<PoolQueue> queue;  // what it runs; under the pool's lock
  };
  using WorkerRef = std::shared_ptr<Worker>;

  void startWorker(const WorkerRef& worker) NVX_EXCLUDES(_mutex);
  void work(const WorkerRef& worker) NVX_EXCLUDES(_mutex);
  PoolQueue* queueAfterTurn(const WorkerRef& worker) NVX_EXCLUDES(_mutex);
  PoolQueue* park(const WorkerRef& worker) NVX_EXCLUDES(_mutex);
  WorkerRef giveToParked(std::shared_ptr<PoolQueue>& queue) NVX_REQUIRES(_mutex);
  void remove(const WorkerRef& worker) NVX_REQUIRES(_mutex);
  void pushLine(std::shared_ptr<PoolQueue> queue) NVX_REQUIRES(_mutex);
  void link(std::shared_ptr<PoolQueue> queue) NVX_REQUIRES(_mutex);
  std::shared_ptr<PoolQueue> popLine() NVX_REQUIRES(_mutex);

  Executors& _executors;
  const char* const _threadName;
  const size_t _mostWorkers;

  Mutex _mutex;
  bool _stopped NVX_GUARDED_BY(_mutex) = false;
  std::vector<WorkerRef> _workers NVX_GUARDED_BY(_mutex);
  std::vector<WorkerRef> _parked NVX_GUARDED_BY(_mutex);  // the last one at the end
  std::shared_ptr<PoolQueue> _lineFirst NVX_GUARDED_BY(_mutex);
  PoolQueue* _lineLast NVX_GUARDED_BY(_mutex) = nullptr;
  std::atomic<size_t> _lineLength{0};
};

}  // namespace nvxcore
