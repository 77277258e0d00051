#pragma once

#include "nvxcore/platform/Semaphore.h"

namespace nvxcore::testing {

/// Looks again and again whether `condition` holds, for at most 30 seconds of real time: for what nobody
/// signals.
template <class Condition>
bool eventually(Condition condition) {
  Semaphore never(0);
  for (int look = 0; look < 15000; ++look) {
    if (condition()) return true;
    never.wait(0.002);
  }
  return condition();
}

}  // namespace nvxcore::testing
