#pragma once

#include <memory>
#include <string>

#include "nvxcore/platform/Reachability.h"

namespace nvxcore {

class RouteChanges;

/// Reachability as the kernel's routes have it: a host is reachable when there is a route to one of its
/// addresses over a link that works. Names are looked up on the queue for blocking work, anew at each change
/// of the network; one that is not found while there is a network is tried again after 1, 2, 4 ... 60
/// seconds.
class NetlinkReachability final : public Reachability {
 public:
  NetlinkReachability();
  ~NetlinkReachability() override;
  std::shared_ptr<ReachabilityTarget> targetWithName(const std::string& host) override;
  uint32_t flagsOfZeroAddress(Family family) override;
  size_t maximumThreadCount() const override { return 1; }

 private:
  const std::shared_ptr<RouteChanges> _changes;
};

}  // namespace nvxcore
