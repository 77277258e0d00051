#pragma once

#include <functional>
#include <memory>
#include <vector>

#include "nvxcore/platform/Mutex.h"

namespace nvxcore {

/// Tells when links, addresses or routes of the system change. It has a thread as long as somebody listens.
class RouteChanges : public std::enable_shared_from_this<RouteChanges> {
 public:
  RouteChanges() = default;
  RouteChanges(const RouteChanges&) = delete;
  RouteChanges& operator=(const RouteChanges&) = delete;

  /// Calls `listener` after each change, several at once counting as one, on the thread of this object, until
  /// the returned token goes; a call under way may still end after that. Null when the system has no more
  /// sockets. Any thread.
  std::shared_ptr<void> addListener(std::function<void()> listener);

 private:
  struct Descriptors;
  struct Token;

  bool start() NVX_REQUIRES(_lock);
  void run(const std::shared_ptr<Descriptors>& descriptors);

  Mutex _lock;
  std::vector<std::weak_ptr<std::function<void()>>> _listeners NVX_GUARDED_BY(_lock);
  /// Of the thread that runs; null without one.
  std::shared_ptr<Descriptors> _descriptors NVX_GUARDED_BY(_lock);
};

}  // namespace nvxcore
