#include "nvxcore/platform/internal/PlatformRuntime.h"

#include <algorithm>
#include <atomic>
#include <mutex>
#include <utility>
#include <vector>

#include "nvxcore/platform/HTTPSession.h"
#include "nvxcore/platform/Reachability.h"
#include "nvxcore/platform/internal/ConcurrentQueue.h"
#include "nvxcore/platform/internal/Executors.h"
#include "nvxcore/platform/internal/MainQueue.h"
#include "nvxcore/platform/internal/ThreadMainLoop.h"
#include "nvxcore/platform/linux/DefaultPlatform.h"

namespace nvxcore {

namespace {

std::atomic<PlatformRuntime*> runtimeInForce{nullptr};

// What a host has chosen so far. Never destroyed: it may be asked while the process leaves.
struct Choice {
  std::mutex mutex;
  Platform platform;
};
Choice& choice() {
  static Choice& choice = *new Choice;
  return choice;
}

template <class T>
void replaceIfSet(std::shared_ptr<T>& seam, std::shared_ptr<T>& with) {
  if (with) seam = std::move(with);
}

}  // namespace

PlatformRuntime::PlatformRuntime(Platform chosen) : _platform(completedPlatform(std::move(chosen))) {
  auto threading = std::make_shared<TrackedThreading>(_platform.threading);
  _platform.threading = threading;
  _executors = std::make_shared<Executors>(std::move(threading));
  if (!_platform.mainLoop) {
    _ownMainLoop = std::make_shared<ThreadMainLoop>(_executors);
    _platform.mainLoop = _ownMainLoop;
  }
  _mainQueue = std::make_shared<MainQueue>(_platform.mainLoop);
  _globalQueue = std::make_shared<ConcurrentQueue>(_executors, WorkerLane::Brief, "nvx.global",
                                                   Executors::kConcurrentWidth);
  _blockingQueue = std::make_shared<ConcurrentQueue>(_executors, WorkerLane::Blocking, "nvx.blocking",
                                                     ConcurrentQueue::kUnlimited);
}

PlatformRuntime::~PlatformRuntime() = default;

PlatformRuntime& PlatformRuntime::current() {
  if (PlatformRuntime* runtime = runtimeInForce.load(std::memory_order_acquire)) return *runtime;
  std::lock_guard lock(choice().mutex);
  PlatformRuntime* runtime = runtimeInForce.load(std::memory_order_acquire);
  if (!runtime) {
    runtime = new PlatformRuntime(std::move(choice().platform));
    runtimeInForce.store(runtime, std::memory_order_release);
  }
  return *runtime;
}

bool PlatformRuntime::choose(Platform platform) {
  std::lock_guard lock(choice().mutex);
  if (runtimeInForce.load(std::memory_order_acquire)) return false;
  Platform& chosen = choice().platform;
  replaceIfSet(chosen.threading, platform.threading);
  replaceIfSet(chosen.mainLoop, platform.mainLoop);
  replaceIfSet(chosen.notificationCenter, platform.notificationCenter);
  replaceIfSet(chosen.httpSessionService, platform.httpSessionService);
  replaceIfSet(chosen.backgroundTasks, platform.backgroundTasks);
  replaceIfSet(chosen.application, platform.application);
  replaceIfSet(chosen.device, platform.device);
  replaceIfSet(chosen.console, platform.console);
  replaceIfSet(chosen.preferences, platform.preferences);
  replaceIfSet(chosen.reachability, platform.reachability);
  return true;
}

PlatformRuntime* PlatformRuntime::exchange(PlatformRuntime* runtime) {
  std::lock_guard lock(choice().mutex);
  return runtimeInForce.exchange(runtime);
}

RuntimeSnapshot PlatformRuntime::snapshot() const {
  RuntimeSnapshot snapshot;
  if (_ownMainLoop) {
    QueueSnapshot main = _ownMainLoop->snapshot();
    main.label = _mainQueue->label();
    if (main.running || main.waiting > 0) snapshot.queues.push_back(std::move(main));
    snapshot.armedTimers += _ownMainLoop->armed();
  }
  std::vector<std::shared_ptr<PoolQueue>> queues;
  _executors->workers.addQueues(queues);
  for (auto queue = queues.begin(); queue != queues.end(); ++queue) {
    // A concurrent queue stands there once for each of its workers.
    if (std::find(queues.begin(), queue, *queue) == queue) snapshot.queues.push_back((*queue)->snapshot());
  }
  std::erase_if(snapshot.queues,
                [](const QueueSnapshot& queue) { return !queue.running && queue.waiting == 0; });
  snapshot.threads = _executors->threading->names();
  snapshot.blockedWorkers = _executors->workers.busyWorkers(WorkerLane::Blocking);
  snapshot.armedTimers += _executors->timers.armed();
  return snapshot;
}

size_t PlatformRuntime::maximumThreadCount() const {
  constexpr size_t kMainLoopAndTimers = 2;
  return kMainLoopAndTimers + _executors->workers.mostWorkers() +
         (_platform.httpSessionService ? _platform.httpSessionService->maximumThreadCount() : 0) +
         _platform.reachability->maximumThreadCount();
}

bool PlatformRuntime::atRest() const {
  return _executors->activity.atRest([this] {
    const int64_t now = _executors->threading->monotonicNanos();
    return _executors->timers.nextDeadline() > now && (!_ownMainLoop || _ownMainLoop->nextDeadline() > now);
  });
}

void PlatformRuntime::setRestHandler(std::function<void()> handler) {
  _executors->activity.setRestHandler(std::move(handler));
}

void PlatformRuntime::dropDelayed() {
  _executors->timers.dropAll();
  if (_ownMainLoop) _ownMainLoop->dropDelayed();
}

void PlatformRuntime::dropServices() { _platform.httpSessionService.reset(); }

void PlatformRuntime::stop() {
  _executors->timers.stop();
  if (_ownMainLoop) _ownMainLoop->stop();
  _executors->workers.stop();
}

}  // namespace nvxcore
