#include "nvxcore/foundation/base/NVXTimingClock.h"

namespace nvxcore {

namespace {

/// Wraps around where the sum has no room, instead of being undefined.
int64_t wrappingSum(int64_t a, int64_t b) {
  return static_cast<int64_t>(static_cast<uint64_t>(a) + static_cast<uint64_t>(b));
}

int64_t wrappingDifference(int64_t a, int64_t b) {
  return static_cast<int64_t>(static_cast<uint64_t>(a) - static_cast<uint64_t>(b));
}

}  // namespace

bool NVXx_IsValidTime(int64_t timeMillis) { return timeMillis >= 0; }

TimeInterval NVXx_TimeMsToTimeInterval(int64_t timeMillis) {
  return static_cast<TimeInterval>(timeMillis / 1000);
}

int64_t NVXx_TimeMsToTimeMicros(int64_t timeMillis) {
  return static_cast<int64_t>(static_cast<uint64_t>(timeMillis) * 1000u);
}

int64_t NVXx_TimeMicrosToTimeMs(int64_t timeMicros) { return timeMicros / 1000; }

int64_t NVXx_CurrentTimeFromRelativeTime(int64_t relativeMillis, NVXTimingClock& clock) {
  if (relativeMillis < 0) return kNVXTimingClock_InvalidTime;
  return wrappingDifference(wrappingSum(clock.currentTimeMillis(), relativeMillis),
                            clock.relativeTimeMillis());
}

int64_t NVXx_RelativeTimeFromCurrentTime(int64_t currentMillis, NVXTimingClock& clock) {
  if (currentMillis < 0) return kNVXTimingClock_InvalidTime;
  return wrappingSum(wrappingDifference(currentMillis, clock.currentTimeMillis()),
                     clock.relativeTimeMillis());
}

Date NVXNSDateFromTimeMs(int64_t timeMillis) {
  return Date::withTimeIntervalSince1970(static_cast<double>(timeMillis) / 1000.0);
}

Date NVXDateWithTimeIntervalSinceNow(WKRTClock& clock, TimeInterval interval) {
  return NVXNSDateFromTimeMs(clock.currentTimeMillis()).addingTimeInterval(interval);
}

}  // namespace nvxcore
