#include "nvxcore/platform/internal/WorkerPool.h"

#include <string>
#include <system_error>
#include <utility>

#include "nvxcore/platform/internal/Deadline.h"
#include "nvxcore/platform/internal/Executors.h"
#include "nvxcore/platform/internal/Fault.h"

namespace nvxcore {

thread_local WorkerPool::Worker* WorkerPool::currentWorker = nullptr;

WorkerPool::WorkerPool(Executors& executors, size_t mostBrief, size_t mostBlocking)
    : _executors(executors), _lanes{Lane(mostBrief), Lane(mostBlocking)} {}

void WorkerPool::submit(std::shared_ptr<PoolQueue> queue) {
  _executors.activity.begin();
  Worker* const worker = HandOffScope::isOpen() ? currentWorker : nullptr;
  if (!worker || worker->pool != this || worker->handedOff) return give(std::move(queue));
  Lock lock(_mutex);
  worker->handedOff = std::move(queue);
}

bool WorkerPool::hasHandedOff() { return currentWorker && currentWorker->handedOff; }

void WorkerPool::settleHandOff() {
  if (!hasHandedOff()) return;
  WorkerPool& pool = *currentWorker->pool;
  std::shared_ptr<PoolQueue> queue;
  {
    Lock lock(pool._mutex);
    queue = std::move(currentWorker->handedOff);
  }
  pool.give(std::move(queue));
}

/// Sees to it that a worker runs `queue`, now or once one is free.
void WorkerPool::give(std::shared_ptr<PoolQueue> queue) {
  WorkerRef worker;
  bool isFresh = false;
  {
    Lock lock(_mutex);
    if (_stopped)
      fault("nvxcore: a task was posted to the queue \"" + queue->label() + "\" after its platform ended");
    worker = giveOrPushLine(std::move(queue), isFresh);
  }
  if (!worker) return;
  if (isFresh) return startWorker(worker);
  worker->parker->unpark();
}

/// The worker that has got the queue and is to be woken or started; null when the queue stands in line.
WorkerPool::WorkerRef WorkerPool::giveOrPushLine(std::shared_ptr<PoolQueue> queue, bool& isFresh) {
  Lane& lane = of(queue->_lane);
  if (lane.busy == lane.most) {
    pushLine(std::move(queue));
    return nullptr;
  }
  ++lane.busy;
  WorkerRef worker;
  isFresh = _parked.empty();
  if (isFresh) {
    worker = _workers.emplace_back(std::make_shared<Worker>());
    worker->pool = this;
  } else {
    worker = std::move(_parked.back());
    _parked.pop_back();
  }
  worker->queue = std::move(queue);
  return worker;
}

void WorkerPool::startWorker(const WorkerRef& worker) {
  worker->parker = _executors.threading->makeParker();
  // The thread keeps alive what it runs on.
  auto body = [this, worker, executors = _executors.shared_from_this()] { work(worker); };
  try {
    _executors.threading->startThread("nvx.worker", std::move(body));
  } catch (const std::system_error&) {
    // The system gives no more threads: the queue has to do with those that there are.
    WorkerRef parked;
    {
      Lock lock(_mutex);
      remove(worker);
      if (_workers.empty()) throw;
      if (_parked.empty()) {
        --of(worker->queue->_lane).busy;
        pushLine(std::move(worker->queue));
        return;
      }
      parked = std::move(_parked.back());
      _parked.pop_back();
      parked->queue = std::move(worker->queue);
    }
    parked->parker->unpark();
  }
}

void WorkerPool::work(const WorkerRef& worker) {
  PoolQueue* queue;
  {
    Lock lock(_mutex);
    queue = worker->queue.get();
  }
  currentWorker = worker.get();
  while (queue) {
    queue->runOnWorker();
    queue = queueAfterTurn(worker);
  }
  currentWorker = nullptr;
}

/// What `worker` goes on with, once there is something; null when it has to end.
PoolQueue* WorkerPool::queueAfterTurn(const WorkerRef& worker) {
  std::shared_ptr<PoolQueue> ended;  // May be the last reference: dropped without the lock.
  std::shared_ptr<PoolQueue> handedOff;
  PoolQueue* next;
  bool parks;
  {
    Lock lock(_mutex);
    Lane& lane = of(worker->queue->_lane);
    --lane.busy;
    if (worker->queue->endsAfterTurn()) {
      ended.swap(worker->queue);
    } else {
      pushLine(std::move(worker->queue));
    }
    handedOff = std::move(worker->handedOff);
    worker->queue = nextQueue(lane, handedOff);
    next = worker->queue.get();
    parks = !next && !_stopped;
    if (parks) {
      _parked.push_back(worker);
    } else if (!next) {
      remove(worker);
    }
  }
  if (ended) {
    ended.reset();
    _executors.activity.end();
  }
  if (handedOff) give(std::move(handedOff));
  return parks ? park(worker) : next;
}

/// Who waits in `lane`, of which a worker has become free, comes first; then what was handed off, which is
/// taken unless its lane is full.
std::shared_ptr<PoolQueue> WorkerPool::nextQueue(Lane& lane, std::shared_ptr<PoolQueue>& handedOff) {
  if (lane.first) return popLine(lane);
  if (handedOff) {
    Lane& other = of(handedOff->_lane);
    if (other.busy < other.most) {
      ++other.busy;
      return std::move(handedOff);
    }
    pushLine(std::move(handedOff));
  }
  for (Lane& any : _lanes) {
    if (any.first && any.busy < any.most) return popLine(any);
  }
  return nullptr;
}

/// Waits among the parked workers to be given a queue; null when `worker` has to end.
PoolQueue* WorkerPool::park(const WorkerRef& worker) {
  const int64_t now = _executors.threading->monotonicNanos();
  if (!worker->parker->parkUntil(deadlineAfter(now, kIdleSeconds))) {
    {
      Lock lock(_mutex);
      if (std::erase(_parked, worker) > 0) {
        remove(worker);
        return nullptr;
      }
    }
    worker->parker->park();  // Chosen at the last moment: the token is on its way.
  }
  Lock lock(_mutex);
  if (!worker->queue) remove(worker);  // Woken by `stop`.
  return worker->queue.get();
}

void WorkerPool::remove(const WorkerRef& worker) {
  std::erase(_workers, worker);
  if (_workers.empty()) _executors.blocks.trim();
}

// A concurrent queue may be asked for by several posts: it stands in line once, and goes back to its end
// until it had as many turns.
void WorkerPool::pushLine(std::shared_ptr<PoolQueue> queue) {
  Lane& lane = of(queue->_lane);
  lane.length.fetch_add(1, std::memory_order_relaxed);
  if (queue->_turns++ == 0) link(lane, std::move(queue));
}

void WorkerPool::link(Lane& lane, std::shared_ptr<PoolQueue> queue) {
  PoolQueue* const last = queue.get();
  (lane.last ? lane.last->_next : lane.first) = std::move(queue);
  lane.last = last;
}

/// The first in the line, for a worker that is counted as busy from now on.
std::shared_ptr<PoolQueue> WorkerPool::popLine(Lane& lane) {
  ++lane.busy;
  lane.length.fetch_sub(1, std::memory_order_relaxed);
  std::shared_ptr<PoolQueue> queue = std::move(lane.first);
  lane.first = std::move(queue->_next);
  if (!lane.first) lane.last = nullptr;
  if (--queue->_turns > 0) link(lane, queue);
  return queue;
}

void WorkerPool::stop() {
  std::vector<WorkerRef> parked;
  {
    Lock lock(_mutex);
    _stopped = true;
    parked.swap(_parked);
  }
  for (const WorkerRef& worker : parked) worker->parker->unpark();
}

void WorkerPool::addQueues(std::vector<std::shared_ptr<PoolQueue>>& queues) {
  Lock lock(_mutex);
  for (const WorkerRef& worker : _workers) {
    if (worker->queue) queues.push_back(worker->queue);
    if (worker->handedOff) queues.push_back(worker->handedOff);
  }
  for (const Lane& lane : _lanes) {
    for (std::shared_ptr<PoolQueue> queue = lane.first; queue; queue = queue->_next) queues.push_back(queue);
  }
}

size_t WorkerPool::busyWorkers(WorkerLane lane) {
  Lock lock(_mutex);
  return of(lane).busy;
}

}  // namespace nvxcore
