#include "nvxcore/platform/internal/PoolQueue.h"

#include <utility>

#include "nvxcore/platform/internal/Executors.h"

namespace nvxcore {

namespace {
thread_local const PoolQueue* currentQueue = nullptr;
}  // namespace

PoolQueue::PoolQueue(std::shared_ptr<Executors> executors, WorkerLane lane, std::string_view label)
    : _executors(std::move(executors)), _lane(lane), _label(label) {}

void PoolQueue::postAfter(TimeInterval delay, Task task) {
  _executors->timers.add(shared_from_this(), delay, std::move(task));
}

bool PoolQueue::isCurrent() const { return currentQueue == this; }

const PoolQueue* PoolQueue::current() { return currentQueue; }

// No guard resets the current queue: an exception that leaves a task ends the process where it was thrown.
void PoolQueue::runOnWorker() {
  currentQueue = this;
  run();
  currentQueue = nullptr;
}

void PoolQueue::submit() {
  _executors->workers.submit(std::static_pointer_cast<PoolQueue>(shared_from_this()));
}

bool PoolQueue::othersWait() const { return _executors->workers.hasLine(_lane); }

}  // namespace nvxcore
