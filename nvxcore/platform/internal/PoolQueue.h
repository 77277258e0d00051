#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

#include "nvxcore/platform/Platform.h"
#include "nvxcore/platform/Queue.h"

namespace nvxcore {

class Executors;
class WorkerPool;

/// Whether the tasks of a queue may block: each kind of queue has its own number of workers.
enum class WorkerLane { Brief, Blocking };

/// A queue whose tasks run on a pool of workers.
class PoolQueue : public Queue {
 public:
  PoolQueue(std::shared_ptr<Executors> executors, WorkerLane lane, std::string_view label);

  void postAfter(TimeInterval delay, Task task) override;
  const std::string& label() const override { return _label; }
  bool isCurrent() const override;

  /// A turn on the calling worker: runs tasks until none is left, or until others wait for a worker and this
  /// queue had its share.
  void runOnWorker();
  /// After a turn, under the pool's lock, so that whoever posts next finds the worker parked already: true
  /// when the queue has gone idle, false when it needs another turn.
  virtual bool endsAfterTurn() = 0;
  virtual QueueSnapshot snapshot() = 0;

  /// The queue whose task runs on this thread, else null.
  static const PoolQueue* current();

 protected:
  /// Tasks that a queue may run on end while others wait.
  static constexpr size_t kShare = 16;

  virtual void run() = 0;
  /// Asks the pool to run this queue once more.
  void submit();
  bool othersWait() const;

  const std::shared_ptr<Executors> _executors;

 private:
  friend class WorkerPool;

  const WorkerLane _lane;
  const std::string _label;
  // The pool's line of waiting queues, under the pool's lock.
  std::shared_ptr<PoolQueue> _next;
  size_t _turns = 0;
};

}  // namespace nvxcore
