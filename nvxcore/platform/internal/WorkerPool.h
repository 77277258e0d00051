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
/// stands in line once as many are at work in its lane as may be. A worker that was parked for `kIdleSeconds`
/// ends. All may be called on any thread.
class WorkerPool {
 public:
  static constexpr TimeInterval kIdleSeconds = 5;

  /// `executors` owns the pool. At most `mostBrief` workers run queues whose tasks must not block, and at
  /// most `mostBlocking` those whose tasks may.
  WorkerPool(Executors& executors, size_t mostBrief, size_t mostBlocking);

  /// In a `HandOffScope` on a worker, the queue waits until the current task ends, and may then run there.
  void submit(std::shared_ptr<PoolQueue> queue) NVX_EXCLUDES(_mutex);
  /// True on a worker whose current task has handed a queue off.
  static bool hasHandedOff();
  /// Gives what the current task has handed off to another worker: this one goes on, or is about to wait.
  static void settleHandOff();

  /// True while queues of `lane` stand in line.
  bool hasLine(WorkerLane lane) const { return of(lane).length.load(std::memory_order_relaxed) > 0; }
  /// Ends the workers as they become idle. Nothing may be submitted any more.
  void stop() NVX_EXCLUDES(_mutex);

  /// Adds the queues that run or stand in line.
  void addQueues(std::vector<std::shared_ptr<PoolQueue>>& queues) NVX_EXCLUDES(_mutex);
  size_t busyWorkers(WorkerLane lane) NVX_EXCLUDES(_mutex);
  size_t mostWorkers() const { return _lanes[0].most + _lanes[1].most; }

 private:
  struct Worker {
    std::shared_ptr<Parker> parker;
    WorkerPool* pool = nullptr;
    std::shared_ptr<PoolQueue> queue;      // what it runs; under the pool's lock, and so is the next one
    std::shared_ptr<PoolQueue> handedOff;  // set by its own thread only
  };
  using WorkerRef = std::shared_ptr<Worker>;

  struct Lane {
    explicit Lane(size_t mostWorkers) : most(mostWorkers) {}
    const size_t most;
    size_t busy = 0;
    std::shared_ptr<PoolQueue> first;  // of the line
    PoolQueue* last = nullptr;
    std::atomic<size_t> length{0};
  };

  // Reached without a call: queues look at it after each task.
  static thread_local Worker* currentWorker __attribute__((tls_model("initial-exec")));

  Lane& of(WorkerLane lane) { return _lanes[static_cast<size_t>(lane)]; }
  const Lane& of(WorkerLane lane) const { return _lanes[static_cast<size_t>(lane)]; }

  void give(std::shared_ptr<PoolQueue> queue) NVX_EXCLUDES(_mutex);
  WorkerRef giveOrPushLine(std::shared_ptr<PoolQueue> queue, bool& isFresh) NVX_REQUIRES(_mutex);
  void startWorker(const WorkerRef& worker) NVX_EXCLUDES(_mutex);
  void work(const WorkerRef& worker) NVX_EXCLUDES(_mutex);
  PoolQueue* queueAfterTurn(const WorkerRef& worker) NVX_EXCLUDES(_mutex);
  std::shared_ptr<PoolQueue> nextQueue(Lane& lane, std::shared_ptr<PoolQueue>& handedOff)
      NVX_REQUIRES(_mutex);
  PoolQueue* park(const WorkerRef& worker) NVX_EXCLUDES(_mutex);
  void remove(const WorkerRef& worker) NVX_REQUIRES(_mutex);
  void pushLine(std::shared_ptr<PoolQueue> queue) NVX_REQUIRES(_mutex);
  static void link(Lane& lane, std::shared_ptr<PoolQueue> queue);
  std::shared_ptr<PoolQueue> popLine(Lane& lane) NVX_REQUIRES(_mutex);

  Executors& _executors;

  Mutex _mutex;
  bool _stopped NVX_GUARDED_BY(_mutex) = false;
  std::vector<WorkerRef> _workers NVX_GUARDED_BY(_mutex);
  std::vector<WorkerRef> _parked NVX_GUARDED_BY(_mutex);  // the last one at the end
  Lane _lanes[2];                                         // but for the lengths, under the lock
};

}  // namespace nvxcore
