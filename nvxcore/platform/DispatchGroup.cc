#include <cstddef>
#include <utility>
#include <vector>

#include "nvxcore/platform/Mutex.h"
#include "nvxcore/platform/Platform.h"
#include "nvxcore/platform/Queue.h"
#include "nvxcore/platform/Threading.h"
#include "nvxcore/platform/internal/Deadline.h"
#include "nvxcore/platform/internal/Fault.h"
#include "nvxcore/platform/internal/Pooled.h"
#include "nvxcore/platform/internal/WorkerPool.h"

namespace nvxcore {

/// Shared with the tasks that the group counts, which may outlive it.
struct DispatchGroup::State {
  void enter() NVX_EXCLUDES(mutex) {
    Lock lock(mutex);
    ++count;
  }
  void leave() NVX_EXCLUDES(mutex);

  Mutex mutex;
  size_t count NVX_GUARDED_BY(mutex) = 0;
  std::vector<std::shared_ptr<Parker>> waiters NVX_GUARDED_BY(mutex);
  std::vector<std::pair<QueueRef, Task>> notifications NVX_GUARDED_BY(mutex);
};

void DispatchGroup::State::leave() {
  std::vector<std::shared_ptr<Parker>> woken;
  std::vector<std::pair<QueueRef, Task>> notified;
  {
    Lock lock(mutex);
    if (count == 0) fault("nvxcore: a dispatch group was left more often than entered");
    if (--count > 0) return;
    woken.swap(waiters);
    notified.swap(notifications);
  }
  for (const auto& parker : woken) parker->unpark();
  for (auto& [queue, task] : notified) queue->post(std::move(task));
}

DispatchGroup::DispatchGroup() : _state(makePooled<State>()) {}

DispatchGroup::~DispatchGroup() = default;

void DispatchGroup::enter() { _state->enter(); }

void DispatchGroup::leave() { _state->leave(); }

bool DispatchGroup::wait(TimeInterval timeout) {
  Threading& threading = *Platform::current().threading;
  State& state = *_state;
  std::shared_ptr<Parker> parker;
  {
    Lock lock(state.mutex);
    if (state.count == 0) return true;
    if (!(timeout > 0)) return false;
    parker = threading.makeParker();
    state.waiters.push_back(parker);
  }
  WorkerPool::settleHandOff();
  if (parkUntilDeadline(*parker, deadlineAfter(threading.monotonicNanos(), timeout))) return true;
  Lock lock(state.mutex);
  return std::erase(state.waiters, parker) == 0;  // Else the last one left at this very moment.
}

void DispatchGroup::notify(const QueueRef& queue, Task task) {
  {
    Lock lock(_state->mutex);
    if (_state->count > 0) {
      _state->notifications.emplace_back(queue, std::move(task));
      return;
    }
  }
  queue->post(std::move(task));
}

void Queue::post(DispatchGroup& group, Task task) {
  // Leaves with the closure, after the task and what it held: also when a queue drops it.
  struct Entry {
    explicit Entry(std::shared_ptr<DispatchGroup::State> entered) : state(std::move(entered)) {
      state->enter();
    }
    Entry(Entry&&) noexcept = default;
    Entry& operator=(Entry&&) = delete;
    ~Entry() {
      if (state) state->leave();
    }
    std::shared_ptr<DispatchGroup::State> state;
  };
  struct Counted {
    void operator()() { task(); }
    Entry entry;  // First, so that it goes last.
    Task task;
  };
  post(Counted{Entry(group._state), std::move(task)});
}

}  // namespace nvxcore
