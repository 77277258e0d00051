#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "nvxcore/platform/Export.h"

namespace nvxcore {

/// What is known of the way to a host, as a set of bits.
inline constexpr uint32_t kReachabilityFlagReachable = 0x2;
inline constexpr uint32_t kReachabilityFlagConnectionRequired = 0x4;  ///< The link must come up first.
inline constexpr uint32_t kReachabilityFlagConnectionOnTraffic = 0x8;
inline constexpr uint32_t kReachabilityFlagInterventionRequired = 0x10;
inline constexpr uint32_t kReachabilityFlagConnectionOnDemand = 0x20;
inline constexpr uint32_t kReachabilityFlagIsWWAN = 0x40000;  ///< Over a cellular network.

/// One host that can be watched. Any thread. Dropping it ends the watching.
class NVXCORE_EXPORT ReachabilityTarget {
 public:
  virtual ~ReachabilityTarget() = default;
  /// Calls `callback` on the main thread with the flags, soon for the first time and then at each change.
  /// False when that can't be done. At most once at a time.
  virtual bool startWatching(std::function<void(uint32_t flags)> callback) = 0;
  /// No call begins after this returns on the main thread.
  virtual void stopWatching() = 0;
  /// The flags as far as they are known; nothing when the name was not looked up yet. Does not block.
  virtual std::optional<uint32_t> flags() = 0;
};

/// The source of reachability. Any thread; no operation waits for the network.
class NVXCORE_EXPORT Reachability {
 public:
  virtual ~Reachability() = default;
  /// A host by its name or its numeric address. Null when there can be none: the name is empty, say.
  virtual std::shared_ptr<ReachabilityTarget> targetWithName(const std::string& host) = 0;
  enum class Family { IPv4, IPv6 };
  /// Flags of the zero address, which stands for the world at large.
  virtual uint32_t flagsOfZeroAddress(Family family) = 0;
  /// The most threads that watching may take.
  virtual size_t maximumThreadCount() const { return 0; }
};

}  // namespace nvxcore
