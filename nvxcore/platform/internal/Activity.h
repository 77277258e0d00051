#pragma once

#include <atomic>
#include <cstddef>
#include <functional>

#include "nvxcore/platform/Mutex.h"

namespace nvxcore {

/// Counts what is under way in a runtime: queues with work, the main loop when it is awake, due timers being
/// handed out. Whoever hands work on begins it before ending his own, so a count of 0 means that all is at
/// rest.
class Activity {
 public:
  void begin() { _count.fetch_add(1); }
  void end() {
    if (_count.fetch_sub(1) == 1 && _watched.load()) callRestHandler();
  }
  bool atRest() const { return _count.load() == 0; }

  /// Calls `handler` each time the count comes to 0, on the thread that brought it there; an empty one for
  /// nobody.
  void setRestHandler(std::function<void()> handler) NVX_EXCLUDES(_mutex) {
    const bool watched = handler != nullptr;
    {
      Lock lock(_mutex);
      _handler.swap(handler);
    }
    _watched.store(watched);
  }

 private:
  void callRestHandler() NVX_EXCLUDES(_mutex) {
    std::function<void()> handler;
    {
      Lock lock(_mutex);
      handler = _handler;
    }
    if (handler) handler();
  }

  std::atomic<size_t> _count{0};
  std::atomic<bool> _watched{false};
  Mutex _mutex;
  std::function<void()> _handler NVX_GUARDED_BY(_mutex);
};

}  // namespace nvxcore
