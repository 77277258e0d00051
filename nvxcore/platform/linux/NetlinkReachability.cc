#include "nvxcore/platform/linux/NetlinkReachability.h"

#include <netdb.h>
#include <sys/socket.h>

#include <algorithm>
#include <utility>

#include "nvxcore/platform/Mutex.h"
#include "nvxcore/platform/Queue.h"
#include "nvxcore/platform/TimeInterval.h"
#include "nvxcore/platform/linux/RouteChanges.h"
#include "nvxcore/platform/linux/RouteTable.h"

namespace nvxcore {

namespace {

constexpr TimeInterval kFirstRetryDelay = 1.0;
constexpr TimeInterval kLongestRetryDelay = 60.0;

/// Of the best way to any of the host's addresses. Nothing when it has none that is known. Blocks.
std::optional<uint32_t> flagsOfHost(const std::string& host) {
  addrinfo hints{};
  hints.ai_family = AF_UNSPEC;
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* list = nullptr;
  if (::getaddrinfo(host.c_str(), nullptr, &hints, &list) != 0) return std::nullopt;
  uint32_t best = 0;
  for (const addrinfo* entry = list; entry; entry = entry->ai_next) {
    const uint32_t flags = flagsOfRouteTo(*entry->ai_addr);
    const bool isReady = flags && !(flags & kReachabilityFlagConnectionRequired);
    if (!best || isReady) best = flags;
    if (isReady) break;
  }
  ::freeaddrinfo(list);
  return best;
}

class WatchedHost final : public ReachabilityTarget, public std::enable_shared_from_this<WatchedHost> {
 public:
  WatchedHost(std::string host, std::shared_ptr<RouteChanges> changes)
      : _host(std::move(host)), _changes(std::move(changes)) {}

  bool startWatching(std::function<void(uint32_t)> callback) override {
    auto token = _changes->addListener([weakSelf = weak_from_this()] {
      if (const auto self = weakSelf.lock()) self->look();
    });
    if (!token) return false;
    {
      Lock lock(_lock);
      _token = std::move(token);
      _callback = std::make_shared<const std::function<void(uint32_t)>>(std::move(callback));
      _delivered.reset();
    }
    look();
    return true;
  }

  void stopWatching() override {
    std::shared_ptr<void> token;
    Callback callback;
    Lock lock(_lock);
    _token.swap(token);
    _callback.swap(callback);
  }

  std::optional<uint32_t> flags() override {
    Lock lock(_lock);
    return _flags;
  }

 private:
  using Callback = std::shared_ptr<const std::function<void(uint32_t)>>;

  /// Looks at the network on the queue for blocking work; once more when it changes meanwhile.
  void look() {
    {
      Lock lock(_lock);
      _changedMeanwhile = _isLooking;
      if (std::exchange(_isLooking, true)) return;
    }
    Queue::blocking()->post([weakSelf = weak_from_this()] {
      if (const auto self = weakSelf.lock()) self->lookNow();
    });
  }

  void lookNow() {
    const std::optional<uint32_t> found = flagsOfHost(_host);
    // No more can be done about a name while there is no network; its return is a change.
    const bool mayRetry = !found && (flagsOfDefaultRoute(AF_INET) || flagsOfDefaultRoute(AF_INET6));
    bool looksAgain;
    TimeInterval retryDelay = 0;
    {
      Lock lock(_lock);
      _isLooking = false;
      looksAgain = _changedMeanwhile && _callback;
      _flags = found.value_or(0);
      if (!mayRetry) {
        _retryDelay = kFirstRetryDelay;
      } else if (_callback && !looksAgain && !_retryIsDue) {
        _retryIsDue = true;
        retryDelay = std::exchange(_retryDelay, std::min(2 * _retryDelay, kLongestRetryDelay));
      }
    }
    Queue::main()->post([weakSelf = weak_from_this()] {
      if (const auto self = weakSelf.lock()) self->deliver();
    });
    if (looksAgain) look();
    if (retryDelay > 0) retryAfter(retryDelay);
  }

  void retryAfter(TimeInterval delay) {
    Queue::blocking()->postAfter(delay, [weakSelf = weak_from_this()] {
      const auto self = weakSelf.lock();
      if (!self) return;
      {
        Lock lock(self->_lock);
        self->_retryIsDue = false;
        if (!self->_callback) return;
      }
      self->look();
    });
  }

  void deliver() {
    Callback callback;
    uint32_t flags;
    {
      Lock lock(_lock);
      if (_delivered == _flags || !_flags) return;
      callback = _callback;
      _delivered = _flags;
      flags = *_flags;
    }
    if (callback && *callback) (*callback)(flags);
  }

  const std::string _host;
  const std::shared_ptr<RouteChanges> _changes;
  Mutex _lock;
  std::shared_ptr<void> _token NVX_GUARDED_BY(_lock);
  /// Null while nobody watches.
  Callback _callback NVX_GUARDED_BY(_lock);
  std::optional<uint32_t> _flags NVX_GUARDED_BY(_lock);
  std::optional<uint32_t> _delivered NVX_GUARDED_BY(_lock);
  bool _isLooking NVX_GUARDED_BY(_lock) = false;
  bool _changedMeanwhile NVX_GUARDED_BY(_lock) = false;
  TimeInterval _retryDelay NVX_GUARDED_BY(_lock) = kFirstRetryDelay;
  bool _retryIsDue NVX_GUARDED_BY(_lock) = false;
};

}  // namespace

NetlinkReachability::NetlinkReachability() : _changes(std::make_shared<RouteChanges>()) {}

NetlinkReachability::~NetlinkReachability() = default;

std::shared_ptr<ReachabilityTarget> NetlinkReachability::targetWithName(const std::string& host) {
  return host.empty() ? nullptr : std::make_shared<WatchedHost>(host, _changes);
}

uint32_t NetlinkReachability::flagsOfZeroAddress(Family family) {
  return flagsOfDefaultRoute(family == Family::IPv4 ? AF_INET : AF_INET6);
}

}  // namespace nvxcore
