#include "nvxcore/platform/Semaphore.h"

#include <limits>
#include <utility>
#include <vector>

#include "nvxcore/platform/Mutex.h"
#include "nvxcore/platform/Platform.h"
#include "nvxcore/platform/Threading.h"
#include "nvxcore/platform/internal/Deadline.h"

namespace nvxcore {

struct Semaphore::State {
  Mutex mutex;
  int64_t count NVX_GUARDED_BY(mutex) = 0;
  // A signal goes to the first of them, past the count, so that nobody overtakes.
  std::vector<std::shared_ptr<Parker>> waiters NVX_GUARDED_BY(mutex);
};

Semaphore::Semaphore(int64_t initialCount) : _state(std::make_unique<State>()) {
  Lock lock(_state->mutex);
  _state->count = initialCount;
}

Semaphore::~Semaphore() = default;

void Semaphore::wait() { wait(std::numeric_limits<TimeInterval>::infinity()); }

bool Semaphore::wait(TimeInterval timeout) {
  State& state = *_state;
  std::shared_ptr<Parker> parker;
  int64_t deadline;
  {
    Lock lock(state.mutex);
    if (state.count > 0) {
      --state.count;
      return true;
    }
    if (!(timeout > 0)) return false;
    Threading& threading = *Platform::current().threading;
    deadline = deadlineAfter(threading.monotonicNanos(), timeout);
    parker = threading.makeParker();
    state.waiters.push_back(parker);
  }
  if (parkUntilDeadline(*parker, deadline)) return true;
  Lock lock(state.mutex);
  return std::erase(state.waiters, parker) == 0;  // Else a signal came at this very moment.
}

void Semaphore::signal() {
  std::shared_ptr<Parker> woken;
  {
    Lock lock(_state->mutex);
    if (_state->waiters.empty()) {
      ++_state->count;
      return;
    }
    woken = std::move(_state->waiters.front());
    _state->waiters.erase(_state->waiters.begin());
  }
  woken->unpark();
}

}  // namespace nvxcore
