#include "nvxcore/platform/internal/WorkerPool.h"

#include <algorithm>
#include <string>
#include <system_error>
#include <utility>

#include "nvxcore/platform/internal/Deadline.h"
#include "nvxcore/platform/internal/Executors.h"
#include "nvxcore/platform/internal/Fault.h"

namespace nvxcore {

WorkerPool::WorkerPool(Executors& executors, const char* threadName, size_t mostWorkers)
    : _executors(executors), _threadName(threadName), _mostWorkers(mostWorkers) {}

void WorkerPool::submit(std::shared_ptr<PoolQueue> queue) {
  _executors.activity.begin();
  WorkerRef parked, fresh;
  {
    Lock lock(_mutex);
    if (_stopped)
      fault("nvxcore: a task was posted to the queue \"" + queue->label() + "\" after its platform ended");
    parked = giveToParked(queue);
    if (!parked) {
      if (_workers.size() == _mostWorkers) {
        pushLine(std::move(queue));
        return;
      }
      fresh = _workers.emplace_back(std::make_shared<Worker>());
      fresh->queue = std::move(queue);
    }
  }
  if (parked) {
    parked->parker->unpark();
  } else {
    startWorker(fresh);
  }
}

void WorkerPool::startWorker(const WorkerRef& worker) {
  worker->parker = _executors.threading->makeParker();
  // The thread keeps alive what it runs on.
  auto body = [this, worker, executors = _executors.shared_from_this()] { work(worker); };
  try {
    _executors.threading->startThread(_threadName, std::move(body));
  } catch (const std::system_error&) {
    // The system gives no more threads: the queue has to do with those that there are.
    WorkerRef parked;
    {
      Lock lock(_mutex);
      remove(worker);
      if (_workers.empty()) throw;
      parked = giveToParked(worker->queue);
      if (!parked) pushLine(std::move(worker->queue));
    }
    if (parked) parked->parker->unpark();
  }
}

void WorkerPool::work(const WorkerRef& worker) {
  PoolQueue* queue;
  {
    Lock lock(_mutex);
    queue = worker->queue.get();
  }
  while (queue) {
    queue->runOnWorker();
    queue = queueAfterTurn(worker);
  }
}

/// What `worker` goes on with, once there is something; null when it has to end.
PoolQueue* WorkerPool::queueAfterTurn(const WorkerRef& worker) {
  std::shared_ptr<PoolQueue> ended;  // May be the last reference: dropped without the lock.
  PoolQueue* next;
  bool parks;
  {
    Lock lock(_mutex);
    if (worker->queue->endsAfterTurn()) {
      ended.swap(worker->queue);
    } else {
      pushLine(std::move(worker->queue));
    }
    worker->queue = popLine();
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
  return parks ? park(worker) : next;
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

WorkerPool::WorkerRef WorkerPool::giveToParked(std::shared_ptr<PoolQueue>& queue) {
  if (_parked.empty()) return nullptr;
  WorkerRef worker = std::move(_parked.back());
  _parked.pop_back();
  worker->queue = std::move(queue);
  return worker;
}

void WorkerPool::remove(const WorkerRef& worker) {
  std::erase(_workers, worker);
  if (_workers.empty()) _executors.blocks.trim();
}

// A concurrent queue may be asked for by several posts: it stands in line once, and goes back to its end
// until it had as many turns.
void WorkerPool::pushLine(std::shared_ptr<PoolQueue> queue) {
  _lineLength.fetch_add(1, std::memory_order_relaxed);
  if (queue->_turns++ == 0) link(std::move(queue));
}

void WorkerPool::link(std::shared_ptr<PoolQueue> queue) {
  PoolQueue* const last = queue.get();
  (_lineLast ? _lineLast->_next : _lineFirst) = std::move(queue);
  _lineLast = last;
}

std::shared_ptr<PoolQueue> WorkerPool::popLine() {
  if (!_lineFirst) return nullptr;
  _lineLength.fetch_sub(1, std::memory_order_relaxed);
  std::shared_ptr<PoolQueue> queue = std::move(_lineFirst);
  _lineFirst = std::move(queue->_next);
  if (!_lineFirst) _lineLast = nullptr;
  if (--queue->_turns > 0) link(queue);
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
  }
  for (std::shared_ptr<PoolQueue> queue = _lineFirst; queue; queue = queue->_next) queues.push_back(queue);
}

size_t WorkerPool::busyWorkers() {
  Lock lock(_mutex);
  return static_cast<size_t>(std::count_if(_workers.begin(), _workers.end(),
                                           [](const WorkerRef& worker) { return worker->queue != nullptr; }));
}

}  // namespace nvxcore
