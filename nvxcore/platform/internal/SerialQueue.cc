#include "nvxcore/platform/internal/SerialQueue.h"

#include <utility>

#include "nvxcore/platform/internal/Executors.h"

namespace nvxcore {

SerialQueue::SerialQueue(std::shared_ptr<Executors> executors, WorkerLane lane, std::string_view label)
    : PoolQueue(std::move(executors), lane, label),
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
    const size_t size = _batch.size();
    while (!_batch.empty()) {
      if (count++ >= kShare && othersWait()) return;
      if (WorkerPool::hasHandedOff()) WorkerPool::settleHandOff();
      _batchSize.store(_batch.size(), std::memory_order_relaxed);
      _batch.runFront();
    }
    // In a stream of posts: let a few gather, so that the two sides don't meet at the lock for each task.
    if (_lingerWorth > 0 && size < kGathered) pause(256);
  } while (takeBatch() || linger());
}

void SerialQueue::pause(int times) {
  for (; times > 0; --times) pauseProcessor();
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
/// be on the way back from that, with more to post. Where that was in vain a few times the posts come one by
/// one, and the processor is left to others; now and then it is tried again. It doesn't yield the processor:
/// the system would count that against the worker, and wake it late the next time.
bool SerialQueue::linger() {
  if (!_executors->lingers || WorkerPool::hasHandedOff()) return false;
  if (_lingerWorth == 0 && ++_turnsWithoutLinger % 32 != 0) return false;
  for (int looks = 0; looks < 8; ++looks) {
    pause(64);
    if (takeBatch()) {
      _lingerWorth = kMostLingerWorth;
      return true;
    }
  }
  if (_lingerWorth > 0) --_lingerWorth;
  return false;
}

QueueSnapshot SerialQueue::snapshot() {
  Lock lock(_mutex);
  const size_t batch = _batchSize.load(std::memory_order_relaxed);
  return {label(), _waiting.size() + (batch > 0 ? batch - 1 : 0), batch > 0};
}

}  // namespace nvxcore
