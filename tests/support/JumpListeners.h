#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <vector>

namespace nvxcore::testing {

/// Whom a clock tells that it has jumped. Any thread.
class JumpListeners {
 public:
  /// Listens until the token goes.
  std::shared_ptr<void> add(std::function<void()> listener) {
    auto token = std::make_shared<std::function<void()>>(std::move(listener));
    std::lock_guard lock(_mutex);
    _listeners.push_back(token);
    return token;
  }

  void call() {
    std::vector<std::shared_ptr<std::function<void()>>> called;
    {
      std::lock_guard lock(_mutex);
      std::erase_if(_listeners, [](const auto& listener) { return listener.expired(); });
      for (const auto& listener : _listeners) {
        if (auto live = listener.lock()) called.push_back(std::move(live));
      }
    }
    for (const auto& listener : called) (*listener)();
  }

 private:
  std::mutex _mutex;
  std::vector<std::weak_ptr<std::function<void()>>> _listeners;
};

}  // namespace nvxcore::testing
