#pragma once

#include <cstdint>
#include <limits>

#include "nvxcore/platform/Threading.h"
#include "nvxcore/platform/TimeInterval.h"

namespace nvxcore {

/// A deadline on the seam's monotonic clock that never comes.
inline constexpr int64_t kNeverNanos = std::numeric_limits<int64_t>::max();
/// One that has passed.
inline constexpr int64_t kPastNanos = std::numeric_limits<int64_t>::min();

/// The moment `interval` seconds after `nowNanos`: at once when it is negative or no number, never when it is
/// too far.
inline int64_t deadlineAfter(int64_t nowNanos, TimeInterval interval) {
  if (!(interval > 0)) return nowNanos;
  const double nanos = interval * 1e9;
  if (nanos >= static_cast<double>(kNeverNanos - (nowNanos > 0 ? nowNanos : 0))) return kNeverNanos;
  return nowNanos + static_cast<int64_t>(nanos + 0.5);
}

/// As Parker::parkUntil, without a limit for a deadline that never comes.
inline bool parkUntilDeadline(Parker& parker, int64_t deadlineNanos) {
  if (deadlineNanos != kNeverNanos) return parker.parkUntil(deadlineNanos);
  parker.park();
  return true;
}

}  // namespace nvxcore
