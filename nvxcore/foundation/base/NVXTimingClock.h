#pragma once

#include <cstdint>
#include <functional>
#include <limits>
#include <memory>

#include "nvxcore/platform/Date.h"
#include "nvxcore/platform/Export.h"
#include "nvxcore/platform/MainLoop.h"
#include "nvxcore/platform/TimeInterval.h"

namespace nvxcore {

/// Wall-clock time for logic. Any thread.
class NVXCORE_EXPORT WKRTClock {
 public:
  virtual ~WKRTClock() = default;
  /// Milliseconds since 1970-01-01 UTC.
  virtual int64_t currentTimeMillis() = 0;
};

/// A time that never comes.
inline constexpr int64_t kNVXTimingClock_FarFuture = std::numeric_limits<int64_t>::max();
inline constexpr int64_t kNVXTimingClock_InvalidTime = -1;
inline constexpr int64_t kNVXTimingClock_InvalidTimeInterval = std::numeric_limits<int64_t>::min();

using NVXScheduledTask = std::shared_ptr<Timer>;

/// All clocks of the system, and tasks on the main thread. Any thread.
class NVXCORE_EXPORT NVXTimingClock : public WKRTClock {
 public:
  /// Monotonic, in milliseconds, with an arbitrary zero.
  virtual int64_t relativeTimeMillis() = 0;
  /// Milliseconds since the system was started.
  virtual int64_t uptimeMillis() = 0;
  /// The value that the host set; 0 until then.
  virtual int64_t appStartTimeMillis() = 0;
  /// Runs `block` once, on the main thread, after `interval` seconds.
  virtual NVXScheduledTask scheduleTaskAfterTimeInterval(TimeInterval interval,
                                                         std::function<void()> block) = 0;
  /// Runs `block` on the main thread every `interval` seconds, up to `tolerance` seconds late when that is
  /// above 0.
  virtual NVXScheduledTask scheduleRepeatingTaskWithTimeInterval(TimeInterval interval,
                                                                 TimeInterval tolerance,
                                                                 std::function<void()> block) = 0;
  /// Harmless when the task has run, was cancelled before, or is none.
  virtual void cancelTask(const NVXScheduledTask& task) = 0;
};

/// True for a time that is not negative.
NVXCORE_EXPORT bool NVXx_IsValidTime(int64_t timeMillis);
/// Whole seconds, cut toward zero: the fraction is dropped on purpose.
NVXCORE_EXPORT TimeInterval NVXx_TimeMsToTimeInterval(int64_t timeMillis);
NVXCORE_EXPORT int64_t NVXx_TimeMsToTimeMicros(int64_t timeMillis);
NVXCORE_EXPORT int64_t NVXx_TimeMicrosToTimeMs(int64_t timeMicros);
/// Translate between a clock's monotonic and wall time; -1 for a negative argument.
NVXCORE_EXPORT int64_t NVXx_CurrentTimeFromRelativeTime(int64_t relativeMillis, NVXTimingClock& clock);
NVXCORE_EXPORT int64_t NVXx_RelativeTimeFromCurrentTime(int64_t currentMillis, NVXTimingClock& clock);
NVXCORE_EXPORT Date NVXNSDateFromTimeMs(int64_t timeMillis);
NVXCORE_EXPORT Date NVXDateWithTimeIntervalSinceNow(WKRTClock& clock, TimeInterval interval);

}  // namespace nvxcore
