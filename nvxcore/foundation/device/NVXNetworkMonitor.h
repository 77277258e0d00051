#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "nvxcore/platform/Export.h"
#include "nvxcore/platform/Mutex.h"
#include "nvxcore/platform/TimeInterval.h"
#include "nvxcore/platform/URL.h"

namespace nvxcore {

class ReachabilityTarget;
class Timer;

/// Notifications with a monitor as object, in normal flow on the main thread. Lost and found alternate, and
/// lost comes first.
inline constexpr char kNVXNetworkMonitorReachabilityFlagsUpdated[] =
    "kNVXNetworkMonitorReachabilityFlagsUpdated";
inline constexpr char kNVXNetworkMonitorNetworkLost[] = "kNVXNetworkMonitorNetworkLost";
inline constexpr char kNVXNetworkMonitorNetworkFound[] = "kNVXNetworkMonitorNetworkFound";

/// Watches whether a server can be reached. A loss is announced only when it lasts longer than a grace
/// period. Any thread.
class NVXCORE_EXPORT NVXNetworkMonitor : public std::enable_shared_from_this<NVXNetworkMonitor> {
 public:
  NVXNetworkMonitor() = delete;
  /// Watches nothing yet.
  static std::shared_ptr<NVXNetworkMonitor> initWithServerURL(const URL& serverURL);
  /// Stops.
  ~NVXNetworkMonitor();

  void startReachabilityCheck();
  /// Drops a running grace period without a word, and keeps the state that clients see.
  void stopReachabilityCheck();
  URL serverURL() const;
  /// Watches the other server when it was watching.
  void setServerURL(const URL& serverURL);

  /// Calls `handler` once: with the next flags, on the thread that brings them, or soon on the main queue
  /// when there are some already.
  void invokeWhenReachabilityFlagsAreAvailable(std::function<void()> handler);
  bool areReachabilityFlagsAvailable() const;
  /// False from the notification of a loss to that of the recovery.
  bool hasNetwork() const;
  /// Reachable now, with no connection to be made first.
  bool isServerReachable() const;
  /// The last ones, of platform/Reachability.h.
  uint32_t reachabilityFlags() const;
  /// 0 for no network, 1 for one, 2 for a cellular one.
  int32_t networkStatus() const;
  /// Whether there is any network at all, whatever the server. Blocks for a system call, not for the network.
  static bool hasReachability();
  /// The same, but in test mode what that says.
  bool monitorHasReachability() const;

  TimeInterval networkLossTimeoutInterval() const;
  /// The grace period: with 0 a loss is announced at once, with less it never is. 5 seconds by default.
  void setNetworkLossTimeoutInterval(TimeInterval interval);
  /// Kept for clients, with no effect here.
  bool networkDisabled() const;
  void setNetworkDisabled(bool disabled);

  /// Test mode: the flags are those of a network, or of none, whatever the platform says, and a loss is
  /// announced at once. Leaving it sets the grace period to 5 seconds. Notifies on the calling thread.
  void setMonitorTesting(bool testing, bool hasNetwork);

 private:
  explicit NVXNetworkMonitor(const URL& serverURL);

  void reachabilityTarget(const ReachabilityTarget* target, uint32_t changedFlags);
  void flagsChanged(uint32_t flags);
  void beginGrace();
  void endGrace();
  void graceEnded(uint64_t grace);
  void setHasNotifiedNetworkLoss(bool lost);
  void post(const char* name);
  void invokeReachabilityBlocks();

  mutable Mutex _lock;
  URL _serverURL NVX_GUARDED_BY(_lock);
  /// Set while watching.
  std::shared_ptr<ReachabilityTarget> _reachabilityRef NVX_GUARDED_BY(_lock);
  TimeInterval _networkLossTimeoutInterval NVX_GUARDED_BY(_lock);
  /// Of the running grace period, once it is made.
  std::weak_ptr<Timer> _networkLossTimer NVX_GUARDED_BY(_lock);
  /// The number of the running grace period, 0 when none runs.
  uint64_t _grace NVX_GUARDED_BY(_lock) = 0;
  uint64_t _lastGrace NVX_GUARDED_BY(_lock) = 0;
  bool _hasNotifiedNetworkLoss NVX_GUARDED_BY(_lock) = false;
  std::vector<std::function<void()>> _reachabilityBlocks NVX_GUARDED_BY(_lock);
  bool _isOverridingFlags NVX_GUARDED_BY(_lock) = false;
  uint32_t _overrideFlags NVX_GUARDED_BY(_lock) = 0;
  bool _areReachabilityFlagsAvailable NVX_GUARDED_BY(_lock) = false;
  bool _networkDisabled NVX_GUARDED_BY(_lock) = false;
  uint32_t _reachabilityFlags NVX_GUARDED_BY(_lock) = 0;
};

}  // namespace nvxcore
