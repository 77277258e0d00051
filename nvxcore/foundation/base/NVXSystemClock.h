#pragma once

#include <atomic>

#include "nvxcore/foundation/base/NVXTimingClock.h"

namespace nvxcore {

/// The clocks of the threading seam; tasks are timers of the main loop.
class NVXCORE_EXPORT NVXSystemClock : public NVXTimingClock {
 public:
  int64_t currentTimeMillis() override;
  int64_t relativeTimeMillis() override;
  int64_t uptimeMillis() override;
  int64_t appStartTimeMillis() override;
  /// To be called at start, before others read it.
  void setAppStartTimeMillis(int64_t timeMillis);
  NVXScheduledTask scheduleTaskAfterTimeInterval(TimeInterval interval, std::function<void()> block) override;
  NVXScheduledTask scheduleRepeatingTaskWithTimeInterval(TimeInterval interval, TimeInterval tolerance,
                                                         std::function<void()> block) override;
  void cancelTask(const NVXScheduledTask& task) override;

 private:
  std::atomic<bool> _hasAppStartTimeMillis{false};
  std::atomic<int64_t> _appStartTimeMillis{0};
};

}  // namespace nvxcore
