// SplitMix64: the same numbers everywhere, which the standard library's distributions do not promise.
#pragma once

#include <cstdint>

namespace nvxcore::geoserver {

inline constexpr uint64_t kSplitMix64Step = 0x9E3779B97F4A7C15;

// The number that follows in the sequence whose state is `state`; no two states give the same one.
inline uint64_t splitMix64(uint64_t state) {
  uint64_t z = state + kSplitMix64Step;
  z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9;
  z = (z ^ (z >> 27)) * 0x94D049BB133111EB;
  return z ^ (z >> 31);
}

}  // namespace nvxcore::geoserver
