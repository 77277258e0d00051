#include "tests/support/PlatformScope.h"

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <utility>

#include "nvxcore/platform/internal/Executors.h"
#include "nvxcore/platform/internal/PlatformRuntime.h"
#include "tests/support/InMemoryPreferences.h"
#include "tests/support/SteppedThreading.h"

namespace nvxcore::testing {

namespace {

constexpr std::chrono::seconds kPatience(10);

/// Set on one thread, awaited in real time on another.
class Flag {
 public:
  void set() {
    std::lock_guard lock(_mutex);
    _set = true;
    _changed.notify_all();
  }
  /// Waits until it is set, and clears it. False when patience ends first.
  bool await(std::chrono::steady_clock::time_point limit) {
    std::unique_lock lock(_mutex);
    return _changed.wait_until(lock, limit, [this] { return _set; }) && std::exchange(_set, false);
  }

 private:
  std::mutex _mutex;
  std::condition_variable _changed;
  bool _set = false;
};

Platform withOwnPreferences(Platform platform) {
  if (!platform.preferences) platform.preferences = std::make_shared<InMemoryPreferencesService>();
  return platform;
}

}  // namespace

PlatformScope::PlatformScope(Platform platform)
    : _stepped(std::dynamic_pointer_cast<SteppedThreading>(platform.threading)),
      _runtime(std::make_unique<PlatformRuntime>(withOwnPreferences(std::move(platform)))),
      _before(PlatformRuntime::exchange(_runtime.get())) {}

PlatformScope::~PlatformScope() {
  // What goes with the services and the delayed tasks may post for a last time.
  const bool ended = settle() && [this] {
    _runtime->dropServices();
    _runtime->dropDelayed();
    return settle();
  }() && endThreads();
  PlatformRuntime::exchange(_before);
  if (!ended) static_cast<void>(_runtime.release());
}

bool PlatformScope::settle() {
  const bool atRest = _stepped ? (_stepped->runFor(0), _runtime->atRest()) : awaitRest();
  if (!atRest) ADD_FAILURE() << "a queue does not drain\n" << describe();
  return atRest;
}

bool PlatformScope::awaitRest() {
  const auto limit = std::chrono::steady_clock::now() + kPatience;
  const auto changed = std::make_shared<Flag>();
  _runtime->setRestHandler([changed] { changed->set(); });
  bool atRest;
  while (!(atRest = _runtime->atRest()) && changed->await(limit)) {
  }
  _runtime->setRestHandler(nullptr);
  return atRest;
}

bool PlatformScope::endThreads() {
  const auto ended = std::make_shared<Flag>();
  _runtime->stop();
  _runtime->executors()->threading->whenNoneRuns([ended] { ended->set(); });
  if (_stepped) _stepped->runUntilIdle();
  if (ended->await(std::chrono::steady_clock::now() + (_stepped ? std::chrono::seconds(0) : kPatience)))
    return true;
  ADD_FAILURE() << "a thread is left\n" << describe();
  return false;
}

std::string PlatformScope::describe() const {
  const RuntimeSnapshot snapshot = _runtime->snapshot();
  std::string text;
  for (const QueueSnapshot& queue : snapshot.queues) {
    text += "queue \"" + queue.label + "\": " + std::to_string(queue.waiting) + " waiting";
    text += queue.running ? ", one running\n" : "\n";
  }
  for (const std::string& thread : snapshot.threads) text += "thread " + thread + "\n";
  return _stepped ? text + _stepped->report() : text;
}

}  // namespace nvxcore::testing
