#include "nvxcore/platform/internal/ThreadMainLoop.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "nvxcore/platform/internal/Deadline.h"
#include "nvxcore/platform/internal/Executors.h"
#include "nvxcore/platform/internal/Fault.h"

namespace nvxcore {

namespace {
thread_local const ThreadMainLoop* currentLoop = nullptr;
}  // namespace

ThreadMainLoop::ThreadMainLoop(std::shared_ptr<Executors> executors)
    : _executors(std::move(executors)),
      _parker(_executors->threading->makeParker()),
      _posted(_executors->blocks),
      _wakesAt(kNeverNanos) {}

void ThreadMainLoop::post(Task task) {
  Wake wake;
  {
    Lock lock(_mutex);
    _posted.push(std::move(task));
    wake = wakeFor(kPastNanos);
  }
  perform(wake);
}

uint64_t ThreadMainLoop::postAfter(TimeInterval delay, Task task) {
  const int64_t deadline = deadlineAfter(_executors->threading->monotonicNanos(), delay);
  Wake wake;
  uint64_t delayedTask;
  {
    Lock lock(_mutex);
    delayedTask = _delayed.add(deadline, {std::move(task), nullptr});
    wake = wakeFor(deadline);
  }
  perform(wake);
  return delayedTask;
}

void ThreadMainLoop::cancel(uint64_t delayedTask) {
  TimerHeap::Item item;  // Destroyed without the lock.
  Lock lock(_mutex);
  _delayed.remove(delayedTask, item);
}

bool ThreadMainLoop::isCurrent() const { return currentLoop == this; }

/// What it takes for the thread to look again before `deadlineNanos` has passed.
ThreadMainLoop::Wake ThreadMainLoop::wakeFor(int64_t deadlineNanos) {
  if (_stopped) fault("nvxcore: a task was posted to the main loop after its platform ended");
  const bool wakes = deadlineNanos < _wakesAt;
  if (wakes || !_started) _wakesAt = kPastNanos;
  if (wakes && _resting) {
    _resting = false;
    _executors->activity.begin();
  }
  if (!std::exchange(_started, true)) return Wake::kStart;
  return wakes ? Wake::kUnpark : Wake::kNone;
}

void ThreadMainLoop::perform(Wake wake) {
  if (wake == Wake::kStart) {
    _executors->threading->startThread("nvx.main", [this, executors = _executors] { run(); });
  } else if (wake == Wake::kUnpark) {
    _parker->unpark();
  }
}

void ThreadMainLoop::run() {
  currentLoop = this;
  for (;;) {
    while (runRound()) {
    }
    {
      Lock lock(_mutex);
      if (_stopped) break;
    }
    await(kNeverNanos, true);
  }
  currentLoop = nullptr;
}

void ThreadMainLoop::turn(TimeInterval interval) {
  if (!isCurrent()) fault("nvxcore: the main loop was turned on another thread than its own");
  const int64_t deadline = deadlineAfter(_executors->threading->monotonicNanos(), interval);
  while (!runRound() && _executors->threading->monotonicNanos() < deadline) await(deadline, false);
}

/// Runs what stands ready now, and not what that adds: first what was posted, then what is due. True when
/// that was anything.
bool ThreadMainLoop::runRound() {
  Round round{_executors->threading->monotonicNanos(), 0, 0};
  {
    Lock lock(_mutex);
    round.posted = _posted.size();
    round.delayedBefore = _delayed.nextSequence();
  }
  Task task;
  bool ran = false;
  for (; takeNext(round, task); ran = true) task();
  return ran;
}

/// Takes a task only when it is its turn, so that a nested round goes on where the outer one stands, and a
/// cancelled task never runs.
bool ThreadMainLoop::takeNext(Round& round, Task& task) {
  Lock lock(_mutex);
  if (std::exchange(round.running, false)) --_running;
  TimerHeap::Item due;
  if (round.posted > 0 && !_posted.empty()) {
    --round.posted;
    task = _posted.pop();
  } else if (_delayed.takeDue(round.now, round.delayedBefore, due)) {
    task = std::move(due.task);
  } else {
    return false;
  }
  round.running = true;
  ++_running;
  return true;
}

void ThreadMainLoop::await(int64_t deadlineNanos, bool rests) {
  {
    Lock lock(_mutex);
    if (!_posted.empty() || _stopped) return;
    deadlineNanos = std::min(deadlineNanos, _delayed.nextDeadline());
    _wakesAt = deadlineNanos;
    _resting = rests;
  }
  if (rests) _executors->activity.end();
  parkUntilDeadline(*_parker, deadlineNanos);
  Lock lock(_mutex);
  _wakesAt = kPastNanos;
  if (std::exchange(_resting, false)) _executors->activity.begin();
}

QueueSnapshot ThreadMainLoop::snapshot() {
  Lock lock(_mutex);
  return {"", _posted.size(), _running > 0};
}

size_t ThreadMainLoop::armed() {
  Lock lock(_mutex);
  return _delayed.size();
}

int64_t ThreadMainLoop::nextDeadline() {
  Lock lock(_mutex);
  return _delayed.nextDeadline();
}

void ThreadMainLoop::dropDelayed() {
  std::vector<TimerHeap::Item> items;  // Destroyed without the lock.
  Lock lock(_mutex);
  items = _delayed.takeAll();
}

void ThreadMainLoop::stop() {
  {
    Lock lock(_mutex);
    _stopped = true;
  }
  _parker->unpark();
}

}  // namespace nvxcore
