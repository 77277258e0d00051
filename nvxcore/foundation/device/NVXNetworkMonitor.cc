#include "nvxcore/foundation/device/NVXNetworkMonitor.h"

#include <utility>

#include "nvxcore/foundation/base/NVXReportError.h"
#include "nvxcore/platform/MainLoop.h"
#include "nvxcore/platform/NotificationCenter.h"
#include "nvxcore/platform/Platform.h"
#include "nvxcore/platform/Queue.h"
#include "nvxcore/platform/Reachability.h"

namespace nvxcore {

namespace {

constexpr TimeInterval kDefaultNetworkLossTimeoutInterval = 5.0;
/// A tenth, as a number of single precision.
constexpr double kToleranceShare = 0.10000000149011612;

bool isReachable(uint32_t flags) {
  return (flags & (kReachabilityFlagReachable | kReachabilityFlagConnectionRequired)) ==
         kReachabilityFlagReachable;
}

}  // namespace

std::shared_ptr<NVXNetworkMonitor> NVXNetworkMonitor::initWithServerURL(const URL& serverURL) {
  return std::shared_ptr<NVXNetworkMonitor>(new NVXNetworkMonitor(serverURL));
}

NVXNetworkMonitor::NVXNetworkMonitor(const URL& serverURL)
    : _serverURL(serverURL), _networkLossTimeoutInterval(kDefaultNetworkLossTimeoutInterval) {}

NVXNetworkMonitor::~NVXNetworkMonitor() { stopReachabilityCheck(); }

void NVXNetworkMonitor::startReachabilityCheck() {
  std::string host;
  {
    Lock lock(_lock);
    if (_reachabilityRef) return;
    host = _serverURL.host();
  }
  const std::shared_ptr<ReachabilityTarget> target = Platform::current().reachability->targetWithName(host);
  if (!target) {
    softReport("%s", "NVXNetworkMonitor: Reachability creation failed");
    return;
  }
  {
    Lock lock(_lock);
    if (_reachabilityRef) return;
    _reachabilityRef = target;
  }
  const bool isScheduled =
      target->startWatching([weakSelf = weak_from_this(), key = target.get()](uint32_t flags) {
        if (const auto self = weakSelf.lock()) self->reachabilityTarget(key, flags);
      });
  if (isScheduled) return;
  softReport("%s", "NVXNetworkMonitor: Reachability scheduling failed");
  Lock lock(_lock);
  if (_reachabilityRef == target) _reachabilityRef.reset();
}

void NVXNetworkMonitor::stopReachabilityCheck() {
  std::shared_ptr<ReachabilityTarget> target;
  {
    Lock lock(_lock);
    target = std::exchange(_reachabilityRef, nullptr);
    _areReachabilityFlagsAvailable = false;
  }
  endGrace();
  if (target) target->stopWatching();
}

URL NVXNetworkMonitor::serverURL() const {
  Lock lock(_lock);
  return _serverURL;
}

void NVXNetworkMonitor::setServerURL(const URL& serverURL) {
  bool restarts;
  {
    Lock lock(_lock);
    restarts = _reachabilityRef && !(serverURL == _serverURL);
    if (!restarts) _serverURL = serverURL;
  }
  if (!restarts) return;
  stopReachabilityCheck();
  {
    Lock lock(_lock);
    _serverURL = serverURL;
  }
  startReachabilityCheck();
}

void NVXNetworkMonitor::invokeWhenReachabilityFlagsAreAvailable(std::function<void()> handler) {
  {
    Lock lock(_lock);
    _reachabilityBlocks.push_back(std::move(handler));
    if (!_areReachabilityFlagsAvailable) return;
  }
  Queue::main()->post([weakSelf = weak_from_this()] {
    if (const auto self = weakSelf.lock()) self->invokeReachabilityBlocks();
  });
}

bool NVXNetworkMonitor::areReachabilityFlagsAvailable() const {
  Lock lock(_lock);
  return _areReachabilityFlagsAvailable;
}

bool NVXNetworkMonitor::hasNetwork() const {
  Lock lock(_lock);
  return !_hasNotifiedNetworkLoss;
}

bool NVXNetworkMonitor::isServerReachable() const { return isReachable(reachabilityFlags()); }

uint32_t NVXNetworkMonitor::reachabilityFlags() const {
  Lock lock(_lock);
  return _reachabilityFlags;
}

int32_t NVXNetworkMonitor::networkStatus() const {
  const uint32_t flags = reachabilityFlags();
  if (!(flags & kReachabilityFlagReachable)) return 0;
  if (flags & kReachabilityFlagIsWWAN) return 2;
  const bool comesUpByItself =
      flags & (kReachabilityFlagConnectionOnTraffic | kReachabilityFlagConnectionOnDemand);
  if (!comesUpByItself || (flags & kReachabilityFlagInterventionRequired)) {
    return flags & kReachabilityFlagConnectionRequired ? 0 : 1;
  }
  return 1;
}

bool NVXNetworkMonitor::hasReachability() {
  Reachability& reachability = *Platform::current().reachability;
  return (reachability.flagsOfZeroAddress(Reachability::Family::IPv4) & kReachabilityFlagReachable) ||
         (reachability.flagsOfZeroAddress(Reachability::Family::IPv6) & kReachabilityFlagReachable);
}

bool NVXNetworkMonitor::monitorHasReachability() const {
  {
    Lock lock(_lock);
    if (_isOverridingFlags) return _overrideFlags & kReachabilityFlagReachable;
  }
  return hasReachability();
}

TimeInterval NVXNetworkMonitor::networkLossTimeoutInterval() const {
  Lock lock(_lock);
  return _networkLossTimeoutInterval;
}

void NVXNetworkMonitor::setNetworkLossTimeoutInterval(TimeInterval interval) {
  Lock lock(_lock);
  _networkLossTimeoutInterval = interval;
}

bool NVXNetworkMonitor::networkDisabled() const {
  Lock lock(_lock);
  return _networkDisabled;
}

void NVXNetworkMonitor::setNetworkDisabled(bool disabled) {
  Lock lock(_lock);
  _networkDisabled = disabled;
}

void NVXNetworkMonitor::setMonitorTesting(bool testing, bool hasNetwork) {
  std::shared_ptr<ReachabilityTarget> target;
  uint32_t flags = hasNetwork ? kReachabilityFlagReachable : 0;
  {
    Lock lock(_lock);
    _isOverridingFlags = testing;
    _overrideFlags = flags;
    _networkLossTimeoutInterval = testing ? 0 : kDefaultNetworkLossTimeoutInterval;
    target = _reachabilityRef;
  }
  if (!testing) flags = target ? target->flags().value_or(0) : 0;
  flagsChanged(flags);
}

void NVXNetworkMonitor::reachabilityTarget(const ReachabilityTarget* target, uint32_t changedFlags) {
  {
    // One that was stopped on another thread may have a call under way.
    Lock lock(_lock);
    if (_reachabilityRef.get() != target) return;
  }
  flagsChanged(changedFlags);
}

void NVXNetworkMonitor::flagsChanged(uint32_t flags) {
  {
    Lock lock(_lock);
    if (_isOverridingFlags) flags = _overrideFlags;
    _reachabilityFlags = flags;
    _areReachabilityFlagsAvailable = true;
  }
  post(kNVXNetworkMonitorReachabilityFlagsUpdated);
  invokeReachabilityBlocks();
  if (isReachable(flags)) {
    endGrace();
    setHasNotifiedNetworkLoss(false);
  } else {
    beginGrace();
  }
}

void NVXNetworkMonitor::beginGrace() {
  TimeInterval interval;
  uint64_t grace = 0;
  {
    Lock lock(_lock);
    if (_hasNotifiedNetworkLoss || _grace) return;
    interval = _networkLossTimeoutInterval;
    if (interval > 0) grace = _grace = ++_lastGrace;
  }
  if (interval == 0) setHasNotifiedNetworkLoss(true);
  if (!grace) return;
  const auto timer = Timer::schedule(interval, interval * kToleranceShare, false,
                                     [weakSelf = weak_from_this(), grace](const std::shared_ptr<Timer>&) {
                                       if (const auto self = weakSelf.lock()) self->graceEnded(grace);
                                     });
  {
    Lock lock(_lock);
    if (_grace == grace) {
      _networkLossTimer = timer;
      return;
    }
  }
  timer->invalidate();
}

void NVXNetworkMonitor::endGrace() {
  std::shared_ptr<Timer> timer;
  {
    Lock lock(_lock);
    _grace = 0;
    timer = std::exchange(_networkLossTimer, {}).lock();
  }
  if (timer) timer->invalidate();
}

void NVXNetworkMonitor::graceEnded(uint64_t grace) {
  {
    Lock lock(_lock);
    if (_grace != grace) return;
  }
  setHasNotifiedNetworkLoss(true);
  Lock lock(_lock);
  if (_grace == grace) _grace = 0;
}

void NVXNetworkMonitor::setHasNotifiedNetworkLoss(bool lost) {
  {
    Lock lock(_lock);
    if (std::exchange(_hasNotifiedNetworkLoss, lost) == lost) return;
  }
  post(lost ? kNVXNetworkMonitorNetworkLost : kNVXNetworkMonitorNetworkFound);
}

void NVXNetworkMonitor::post(const char* name) {
  NotificationCenter::defaultCenter().post({name, shared_from_this(), {}});
}

void NVXNetworkMonitor::invokeReachabilityBlocks() {
  std::vector<std::function<void()>> blocks;
  {
    Lock lock(_lock);
    blocks.swap(_reachabilityBlocks);
  }
  for (const std::function<void()>& block : blocks) {
    if (block) block();
  }
}

}  // namespace nvxcore
