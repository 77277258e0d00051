#pragma once

#include <cstddef>

namespace nvxcore::testing {

/// What the program has of malloc, each block with the room that it really takes. A program that links this
/// has its malloc counted; not so under the sanitizers, which have their own.
struct AllocationCount {
  size_t calls;
  size_t bytes;
  size_t peakBytes;
};
bool allocationsAreCounted();
AllocationCount allocationCount();
/// The peak is what is in use now.
void resetAllocationPeak();

}  // namespace nvxcore::testing
