#include <algorithm>
#include <cmath>
#include <utility>

#include "nvxcore/platform/MainLoop.h"
#include "nvxcore/platform/Mutex.h"
#include "nvxcore/platform/Platform.h"
#include "nvxcore/platform/Threading.h"
#include "nvxcore/platform/internal/Deadline.h"

namespace nvxcore {

using TimerHandler = std::function<void(const std::shared_ptr<Timer>&)>;

namespace {

// Shorter periods would keep the main thread from everything else.
constexpr TimeInterval kShortestPeriod = 0.0001;

// Timers with a tolerance fire at multiples of the largest power of two that fits in it, so that they meet
// there.
int64_t sharedMoment(int64_t nanos, TimeInterval tolerance) {
  if (!(tolerance * 1e9 >= 2) || nanos == kNeverNanos) return nanos;
  const int exponent = std::min(std::ilogb(tolerance * 1e9), 40);
  const int64_t step = int64_t{1} << exponent;
  return nanos > kNeverNanos - step ? nanos : (nanos + step - 1) & ~(step - 1);
}

}  // namespace

struct Timer::State {
  State(TimeInterval firingInterval, TimeInterval firingTolerance, bool repeating, TimerHandler firingHandler)
      : interval(firingInterval),
        tolerance(firingTolerance),
        repeats(repeating),
        due(deadlineAfter(threading->monotonicNanos(), interval)),
        handler(std::move(firingHandler)) {}

  static void arm(const std::shared_ptr<Timer>& timer);
  static void fire(const std::shared_ptr<Timer>& timer);

  const std::shared_ptr<MainLoop> loop = Platform::current().mainLoop;
  const std::shared_ptr<Threading> threading = Platform::current().threading;
  const TimeInterval interval;
  const TimeInterval tolerance;
  const bool repeats;
  int64_t due;  // of the next firing, without tolerance; only one arms or fires at a time

  Mutex mutex;
  bool valid NVX_GUARDED_BY(mutex) = true;
  TimerHandler handler NVX_GUARDED_BY(mutex);
  uint64_t delayedTask NVX_GUARDED_BY(mutex) = 0;
  uint64_t armings NVX_GUARDED_BY(mutex) = 0;
};

std::shared_ptr<Timer> Timer::schedule(TimeInterval interval, TimeInterval tolerance, bool repeats,
                                       TimerHandler handler) {
  if (repeats && !(interval > kShortestPeriod)) interval = kShortestPeriod;
  std::shared_ptr<Timer> timer(
      new Timer(std::make_shared<State>(interval, tolerance, repeats, std::move(handler))));
  State::arm(timer);
  return timer;
}

Timer::Timer(std::shared_ptr<State> state) : _state(std::move(state)) {}

Timer::~Timer() = default;

// The delayed task holds the timer, and so does the main loop.
void Timer::State::arm(const std::shared_ptr<Timer>& timer) {
  State& state = *timer->_state;
  uint64_t arming;
  {
    Lock lock(state.mutex);
    arming = ++state.armings;
  }
  const int64_t now = state.threading->monotonicNanos();
  const TimeInterval delay = static_cast<double>(sharedMoment(state.due, state.tolerance) - now) / 1e9;
  const uint64_t delayedTask = state.loop->postAfter(delay, [timer] { fire(timer); });
  bool invalidated = false;
  {
    Lock lock(state.mutex);
    // It may have fired meanwhile, and have been armed once more.
    if (arming == state.armings) state.delayedTask = delayedTask;
    invalidated = !state.valid;
  }
  if (invalidated) state.loop->cancel(delayedTask);
}

void Timer::State::fire(const std::shared_ptr<Timer>& timer) {
  State& state = *timer->_state;
  TimerHandler handler;  // Out of the timer's hands while it runs: a nested turn doesn't enter it again.
  {
    Lock lock(state.mutex);
    if (!state.valid) return;
    handler.swap(state.handler);
    state.valid = state.repeats;
  }
  if (handler) handler(timer);
  if (!state.repeats) return;
  {
    Lock lock(state.mutex);
    if (!state.valid) return;
    handler.swap(state.handler);
  }
  // Later firings keep to the first one's beat. What was missed is not made up for.
  const int64_t now = state.threading->monotonicNanos();
  const int64_t period = deadlineAfter(0, state.interval);
  if (state.due <= now) state.due += ((now - state.due) / period + 1) * period;
  arm(timer);
}

void Timer::invalidate() {
  const std::shared_ptr<Timer> self = shared_from_this();  // The main loop's reference may be the last one.
  TimerHandler handler;
  uint64_t delayedTask;
  {
    Lock lock(_state->mutex);
    if (!std::exchange(_state->valid, false)) return;
    handler.swap(_state->handler);
    delayedTask = _state->delayedTask;
  }
  _state->loop->cancel(delayedTask);
}

bool Timer::isValid() const {
  Lock lock(_state->mutex);
  return _state->valid;
}

TimeInterval Timer::interval() const { return _state->interval; }

TimeInterval Timer::tolerance() const { return _state->tolerance; }

}  // namespace nvxcore
