#include "tests/support/ManualTime.h"

#include <algorithm>
#include <mutex>
#include <utility>
#include <vector>

#include "nvxcore/platform/linux/PosixThreading.h"
#include "tests/support/JumpListeners.h"

namespace nvxcore::testing {

namespace {
constexpr int64_t kSecond = 1'000'000'000;
constexpr int64_t kStart = 1000 * kSecond;
constexpr int64_t kWallClockOffset = 1'577'836'800 * kSecond - kStart;
constexpr int64_t kUptimeOffset = -500 * kSecond;
}  // namespace

struct ManualTime::State {
  std::mutex mutex;
  int64_t now = kStart;
  std::vector<std::pair<int64_t, Parker*>>
      sleepers;  // by deadline: the real parkers of those who wait for it
  JumpListeners listeners;
};

class ManualTime::ManualParker final : public Parker {
 public:
  ManualParker(std::shared_ptr<State> state, std::unique_ptr<Parker> real)
      : _state(std::move(state)), _real(std::move(real)) {}

  void park() override {
    while (!takeToken()) _real->park();
  }

  bool parkUntil(int64_t deadlineNanos) override {
    const std::pair<int64_t, Parker*> sleeper{deadlineNanos, _real.get()};
    std::unique_lock lock(_state->mutex);
    while (!_token && _state->now < deadlineNanos) {
      _state->sleepers.push_back(sleeper);
      lock.unlock();
      _real->park();
      lock.lock();
      std::erase(_state->sleepers, sleeper);
    }
    return std::exchange(_token, false);
  }

  void unpark() override {
    std::lock_guard lock(_state->mutex);
    _token = true;
    _real->unpark();
  }

 private:
  bool takeToken() {
    std::lock_guard lock(_state->mutex);
    return std::exchange(_token, false);
  }

  const std::shared_ptr<State> _state;
  const std::unique_ptr<Parker> _real;
  bool _token = false;
};

ManualTime::ManualTime() : _real(std::make_shared<PosixThreading>()), _state(std::make_shared<State>()) {}

ManualTime::~ManualTime() = default;

void ManualTime::advance(TimeInterval seconds) {
  {
    std::lock_guard lock(_state->mutex);
    _state->now += static_cast<int64_t>(seconds * 1e9 + 0.5);
    for (const auto& [deadline, real] : _state->sleepers) {
      if (deadline <= _state->now) real->unpark();
    }
  }
  _state->listeners.call();
}

std::unique_ptr<ThreadHandle> ManualTime::startThread(const std::string& name, Task body) {
  return _real->startThread(name, std::move(body));
}

std::unique_ptr<Parker> ManualTime::makeParker() {
  return std::make_unique<ManualParker>(_state, _real->makeParker());
}

int64_t ManualTime::monotonicNanos() {
  std::lock_guard lock(_state->mutex);
  return _state->now;
}

int64_t ManualTime::wallClockNanos() { return monotonicNanos() + kWallClockOffset; }

int64_t ManualTime::uptimeNanos() { return monotonicNanos() + kUptimeOffset; }

std::shared_ptr<void> ManualTime::addJumpListener(std::function<void()> listener) {
  return _state->listeners.add(std::move(listener));
}

}  // namespace nvxcore::testing
