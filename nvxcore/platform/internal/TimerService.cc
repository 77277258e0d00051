#include "nvxcore/platform/internal/TimerService.h"

#include <utility>
#include <vector>

#include "nvxcore/platform/internal/Deadline.h"
#include "nvxcore/platform/internal/Executors.h"
#include "nvxcore/platform/internal/Fault.h"

namespace nvxcore {

TimerService::TimerService(Executors& executors)
    : _executors(executors), _parker(executors.threading->makeParker()) {}

void TimerService::add(QueueRef queue, TimeInterval delay, Task task) {
  const int64_t deadline = deadlineAfter(_executors.threading->monotonicNanos(), delay);
  bool starts, wakes;
  {
    Lock lock(_mutex);
    if (_stopped) fault("nvxcore: a delayed task was posted after its platform ended");
    _heap.add(deadline, {std::move(task), std::move(queue)});
    starts = !std::exchange(_running, true);
    wakes = deadline < _wakesAt;
    if (starts || wakes) _wakesAt = kPastNanos;
  }
  if (starts) {
    _executors.threading->startThread("nvx.timers",
                                      [this, executors = _executors.shared_from_this()] { run(); });
  } else if (wakes) {
    _parker->unpark();
  }
}

void TimerService::run() {
  do {
    postDue();
  } while (awaitNext());
}

void TimerService::postDue() {
  _executors.activity.begin();
  const int64_t now = _executors.threading->monotonicNanos();
  for (;;) {
    TimerHeap::Item item;
    {
      Lock lock(_mutex);
      if (!_heap.takeDue(now, _heap.nextSequence(), item)) break;
    }
    item.queue->post(std::move(item.task));
  }
  _executors.activity.end();
}

/// False when the thread has to end.
bool TimerService::awaitNext() {
  const int64_t now = _executors.threading->monotonicNanos();
  int64_t deadline;
  bool idle;
  {
    Lock lock(_mutex);
    idle = _heap.size() == 0;
    deadline = idle ? deadlineAfter(now, kIdleSeconds) : _heap.nextDeadline();
    if (_stopped) deadline = now;
    _wakesAt = deadline;
  }
  const bool woken = parkUntilDeadline(*_parker, deadline);
  Lock lock(_mutex);
  _wakesAt = kPastNanos;
  if (_stopped || (idle && !woken && _heap.size() == 0)) _running = false;
  return _running;
}

size_t TimerService::armed() {
  Lock lock(_mutex);
  return _heap.size();
}

int64_t TimerService::nextDeadline() {
  Lock lock(_mutex);
  return _heap.nextDeadline();
}

void TimerService::dropAll() {
  std::vector<TimerHeap::Item> items;  // Destroyed without the lock.
  Lock lock(_mutex);
  items = _heap.takeAll();
}

void TimerService::stop() {
  {
    Lock lock(_mutex);
    _stopped = true;
  }
  _parker->unpark();
}

}  // namespace nvxcore
