#include "nvxcore/platform/linux/RouteChanges.h"

#include <linux/rtnetlink.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <utility>

#include "nvxcore/platform/Platform.h"
#include "nvxcore/platform/Threading.h"

namespace nvxcore {

struct RouteChanges::Descriptors {
  const int changes = ::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, NETLINK_ROUTE);
  const int wakeUp = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);

  Descriptors() = default;
  ~Descriptors() {
    if (changes >= 0) ::close(changes);
    if (wakeUp >= 0) ::close(wakeUp);
  }
  Descriptors(const Descriptors&) = delete;
  Descriptors& operator=(const Descriptors&) = delete;

  bool listen() const {
    sockaddr_nl groups{};
    groups.nl_family = AF_NETLINK;
    groups.nl_groups =
        RTMGRP_LINK | RTMGRP_IPV4_IFADDR | RTMGRP_IPV6_IFADDR | RTMGRP_IPV4_ROUTE | RTMGRP_IPV6_ROUTE;
    return changes >= 0 && wakeUp >= 0 &&
           ::bind(changes, reinterpret_cast<const sockaddr*>(&groups), sizeof groups) == 0;
  }
  void wake() const {
    const uint64_t one = 1;
    while (::write(wakeUp, &one, sizeof one) < 0 && errno == EINTR) {
    }
  }
  /// Takes all messages that are there. False when there was none. What they say doesn't count: one that was
  /// dropped for want of room (ENOBUFS) is a change too.
  bool drain() const {
    bool any = false;
    std::array<char, 8192> buffer;
    for (;;) {
      if (::recv(changes, buffer.data(), buffer.size(), 0) >= 0 || errno == ENOBUFS) {
        any = true;
      } else if (errno != EINTR) {
        return any;
      }
    }
  }
};

/// Keeps a listener, and wakes the thread when it goes.
struct RouteChanges::Token {
  std::shared_ptr<RouteChanges> owner;
  std::shared_ptr<std::function<void()>> listener;

  ~Token() {
    listener.reset();
    Lock lock(owner->_lock);
    if (owner->_descriptors) owner->_descriptors->wake();
  }
};

std::shared_ptr<void> RouteChanges::addListener(std::function<void()> listener) {
  auto token = std::make_shared<Token>();
  token->owner = shared_from_this();
  token->listener = std::make_shared<std::function<void()>>(std::move(listener));
  Lock lock(_lock);
  if (!_descriptors && !start()) return nullptr;
  _listeners.push_back(token->listener);
  return token;
}

bool RouteChanges::start() {
  auto descriptors = std::make_shared<Descriptors>();
  if (!descriptors->listen()) return false;
  Platform::current().threading->startThread(
      "nvx.routes", [self = shared_from_this(), descriptors] { self->run(descriptors); });
  _descriptors = std::move(descriptors);
  return true;
}

void RouteChanges::run(const std::shared_ptr<Descriptors>& descriptors) {
  std::array<pollfd, 2> waits = {pollfd{descriptors->changes, POLLIN, 0},
                                 pollfd{descriptors->wakeUp, POLLIN, 0}};
  for (;;) {
    ::poll(waits.data(), waits.size(), -1);
    if (waits[1].revents) {
      uint64_t count;
      static_cast<void>(!::read(descriptors->wakeUp, &count, sizeof count));
    }
    const bool changed = descriptors->drain();
    std::vector<std::shared_ptr<std::function<void()>>> listeners;
    {
      Lock lock(_lock);
      std::erase_if(_listeners, [](const auto& listener) { return listener.expired(); });
      if (_listeners.empty()) {
        _descriptors.reset();
        return;
      }
      for (const auto& listener : _listeners) listeners.push_back(listener.lock());
    }
    for (const auto& listener : listeners) {
      if (changed && listener) (*listener)();
    }
  }
}

}  // namespace nvxcore
