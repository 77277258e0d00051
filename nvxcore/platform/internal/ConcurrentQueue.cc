#include "nvxcore/platform/internal/ConcurrentQueue.h"

#include <utility>

#include "nvxcore/platform/internal/Executors.h"

namespace nvxcore {

ConcurrentQueue::ConcurrentQueue(std::shared_ptr<Executors> executors, WorkerLane lane,
                                 std::string_view label, size_t width)
    : PoolQueue(std::move(executors), lane, label), _width(width), _waiting(_executors->blocks) {}

// With room for another worker one is asked for with every task, since those at work may never come back to
// look: a task that blocks holds up only itself.
void ConcurrentQueue::post(Task task) {
  {
    Lock lock(_mutex);
    _waiting.push(std::move(task));
    if (_workers == _width) return;
    ++_workers;
  }
  submit();
}

void ConcurrentQueue::run() {
  for (size_t count = 0;; ++count) {
    Task task;
    bool settles;
    {
      Lock lock(_mutex);
      if (count > 0) --_running;
      if (_waiting.empty() || (count >= kShare && othersWait())) return;
      settles = WorkerPool::hasHandedOff();
      ++_running;
      task = _waiting.pop();
    }
    if (settles) WorkerPool::settleHandOff();
    task();
  }
}

bool ConcurrentQueue::endsAfterTurn() {
  Lock lock(_mutex);
  if (!_waiting.empty()) return false;
  --_workers;
  return true;
}

QueueSnapshot ConcurrentQueue::snapshot() {
  Lock lock(_mutex);
  return {label(), _waiting.size(), _running > 0};
}

}  // namespace nvxcore
