#include "nvxcore/platform/internal/SerialQueue.h"

#include <utility>

#include "nvxcore/platform/internal/Executors.h"

namespace nvxcore {

SerialQueue::SerialQueue(std::shared_ptr<Executors> executors, WorkerPool& pool, std::string_view label)
    : PoolQueue(std::move(executors), pool, label),
      _waiting(_executors->blocks),
      _batch(_executors->blocks) {}

void SerialQueue::post(Task task) {
  bool idle;
  {
    Lock lock(_mutex);
    _waiting.push(std::move(task));
    idle = !std::exchange(_scheduled, true);
  }
  if (idle) submit();
}

bool SerialQueue::run() {
  for (size_t count = 0;;) {
    while (!_batch.empty()) {
      if (count++ >= kShare && othersWait()) return true;
      _batchSize.store(_batch.size(), std::memory_order_relaxed);
      _batch.front()();
      _batch.dropFront();
    }
    Lock lock(_mutex);
    _batchSize.store(0, std::memory_order_relaxed);
    if (_waiting.empty()) {
      _scheduled = false;
      return false;
    }
    _batch.swap(_waiting);
  }
}

QueueSnapshot SerialQueue::snapshot() {
  Lock lock(_mutex);
  const size_t batch = _batchSize.load(std::memory_order_relaxed);
  return {label(), _waiting.size() + (batch > 0 ? batch - 1 : 0), batch > 0};
}

}  // namespace nvxcore
