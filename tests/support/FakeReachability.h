#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "nvxcore/platform/Reachability.h"

namespace nvxcore::testing {

/// Reachability as a test plays it. One thread, which stands for the main thread.
class FakeReachability final : public Reachability {
 public:
  class Target final : public ReachabilityTarget {
   public:
    explicit Target(FakeReachability& owner) : _owner(owner) {}
    bool startWatching(std::function<void(uint32_t)> callback) override {
      if (!_owner.canSchedule) return false;
      this->callback = std::move(callback);
      return true;
    }
    void stopWatching() override { callback = nullptr; }
    std::optional<uint32_t> flags() override { return current; }

    std::function<void(uint32_t)> callback;
    std::optional<uint32_t> current;

   private:
    FakeReachability& _owner;
  };

  bool canCreate = true, canSchedule = true;
  uint32_t zeroIPv4 = 0, zeroIPv6 = 0;
  /// The names asked for, and their targets as long as somebody holds them.
  std::vector<std::string> names;
  std::vector<std::weak_ptr<Target>> targets;

  std::shared_ptr<ReachabilityTarget> targetWithName(const std::string& host) override {
    if (!canCreate) return nullptr;
    names.push_back(host);
    auto target = std::make_shared<Target>(*this);
    targets.push_back(target);
    return target;
  }
  uint32_t flagsOfZeroAddress(Family family) override { return family == Family::IPv4 ? zeroIPv4 : zeroIPv6; }

  bool isWatching() const {
    const auto target = targets.empty() ? nullptr : targets.back().lock();
    return target && target->callback;
  }
  /// The network's flags from now on, told to who watches.
  void change(uint32_t flags) {
    const auto target = targets.empty() ? nullptr : targets.back().lock();
    if (!target) return;
    target->current = flags;
    if (const auto callback = target->callback) callback(flags);
  }
};

}  // namespace nvxcore::testing
