#pragma once

#include <atomic>
#include <cstdint>
#include <functional>

#include "nvxcore/platform/Mutex.h"

namespace nvxcore {

/// Counts what is under way in a runtime: queues with work, the main loop when it is awake, due timers being
/// handed out. Whoever hands work on begins it before ending his own, so a count of 0 means that all is at
/// rest.
class Activity {
 public:
  void begin() { _state.fetch_add(kBegun + 1); }
  void end() {
    if (countIn(_state.fetch_sub(1)) == 1 && _watched.load()) callRestHandler();
  }
  /// Nothing is under way, and nothing was while `alsoTrue` was found to be so.
  template <class Condition>
  bool atRest(Condition alsoTrue) const {
    const uint64_t before = _state.load();
    return countIn(before) == 0 && alsoTrue() && _state.load() == before;
  }

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

  // The number under way, and above it how many were ever begun.
  static constexpr uint64_t kBegun = uint64_t{1} << 32;
  static uint32_t countIn(uint64_t state) { return static_cast<uint32_t>(state); }

  std::atomic<uint64_t> _state{0};
  std::atomic<bool> _watched{false};
  Mutex _mutex;
  std::function<void()> _handler NVX_GUARDED_BY(_mutex);
};

}  // namespace nvxcore
