#include "nvxcore/platform/internal/SerialQueue.h"

#include <thread>
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
  bool lingered = false;
  for (size_t count = 0;;) {
    for (; !_batch.empty(); lingered = false) {
      if (count++ >= kShare && othersWait()) return true;
      _batchSize.store(_batch.size(), std::memory_order_relaxed);
      _batch.front()();
      _batch.dropFront();
    }
    if (!takeBatch(lingered)) return false;
    if (_batch.empty()) {
      linger();
      lingered = true;
    }
  }
}

/// Moves what waits to the batch. With nothing waiting, false once `mayEnd`: the queue is then idle.
bool SerialQueue::takeBatch(bool mayEnd) {
  Lock lock(_mutex);
  _batchSize.store(0, std::memory_order_relaxed);
  if (_waiting.empty()) {
    _scheduled = !mayEnd;
  } else {
    _batch.swap(_waiting);
  }
  return _scheduled;
}

/// Gives whoever is posting the time to post more: to find it here is cheaper for both than to be woken for
/// it, or to meet at the lock for each task.
void SerialQueue::linger() {
  for (int pauses = 0; pauses < 32; ++pauses) pauseProcessor();
  std::this_thread::yield();
}

QueueSnapshot SerialQueue::snapshot() {
  Lock lock(_mutex);
  const size_t batch = _batchSize.load(std::memory_order_relaxed);
  return {label(), _waiting.size() + (batch > 0 ? batch - 1 : 0), batch > 0};
}

}  // namespace nvxcore
