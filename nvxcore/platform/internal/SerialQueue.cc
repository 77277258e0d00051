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

void SerialQueue::run() {
  size_t count = 0;
  do {
    while (!_batch.empty()) {
      if (count++ >= kShare && othersWait()) return;
      _batchSize.store(_batch.size(), std::memory_order_relaxed);
      _batch.front()();
      _batch.dropFront();
    }
  } while (takeBatch() || linger());
}

/// Moves what waits to the batch, which is empty. False with nothing waiting.
bool SerialQueue::takeBatch() {
  Lock lock(_mutex);
  _batchSize.store(0, std::memory_order_relaxed);
  _batch.swap(_waiting);
  return !_batch.empty();
}

bool SerialQueue::endsAfterTurn() {
  Lock lock(_mutex);
  _scheduled = !_batch.empty() || !_waiting.empty();
  return !_scheduled;
}

/// Stays for about as long as waking takes, on both sides of it: whoever has just woken this worker may still
/// be on the way back from that, with more to post. Looks seldom, so that the two don't meet at the lock for
/// each task. It doesn't yield the processor: the system would count that against the worker, and wake it
/// late the next time.
bool SerialQueue::linger() {
  if (!_executors->lingers) return false;
  for (int looks = 0; looks < 8; ++looks) {
    for (int pauses = 0; pauses < 64; ++pauses) pauseProcessor();
    if (takeBatch()) return true;
  }
  return false;
}

QueueSnapshot SerialQueue::snapshot() {
  Lock lock(_mutex);
  const size_t batch = _batchSize.load(std::memory_order_relaxed);
  return {label(), _waiting.size() + (batch > 0 ? batch - 1 : 0), batch > 0};
}

}  // namespace nvxcore
