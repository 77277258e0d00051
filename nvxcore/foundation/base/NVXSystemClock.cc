#include "nvxcore/foundation/base/NVXSystemClock.h"

#include <utility>

#include "nvxcore/platform/Platform.h"
#include "nvxcore/platform/Threading.h"

namespace nvxcore {

namespace {

constexpr int64_t kNanosPerMilli = 1'000'000;

Threading& threading() { return *Platform::current().threading; }

NVXScheduledTask schedule(TimeInterval interval, TimeInterval tolerance, bool repeats,
                          std::function<void()> block) {
  return Timer::schedule(interval, tolerance, repeats, [block = std::move(block)](const NVXScheduledTask&) {
    if (block) block();
  });
}

}  // namespace

int64_t NVXSystemClock::currentTimeMillis() { return threading().wallClockNanos() / kNanosPerMilli; }
int64_t NVXSystemClock::relativeTimeMillis() { return threading().monotonicNanos() / kNanosPerMilli; }
int64_t NVXSystemClock::uptimeMillis() { return threading().uptimeNanos() / kNanosPerMilli; }

int64_t NVXSystemClock::appStartTimeMillis() {
  return _hasAppStartTimeMillis ? _appStartTimeMillis.load() : 0;
}

void NVXSystemClock::setAppStartTimeMillis(int64_t timeMillis) {
  _appStartTimeMillis = timeMillis;
  _hasAppStartTimeMillis = true;
}

NVXScheduledTask NVXSystemClock::scheduleTaskAfterTimeInterval(TimeInterval interval,
                                                               std::function<void()> block) {
  return schedule(interval, 0, false, std::move(block));
}

NVXScheduledTask NVXSystemClock::scheduleRepeatingTaskWithTimeInterval(TimeInterval interval,
                                                                       TimeInterval tolerance,
                                                                       std::function<void()> block) {
  return schedule(interval, tolerance > 0 ? tolerance : 0, true, std::move(block));
}

void NVXSystemClock::cancelTask(const NVXScheduledTask& task) {
  if (task) task->invalidate();
}

}  // namespace nvxcore
