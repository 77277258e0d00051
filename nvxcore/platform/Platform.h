#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "nvxcore/platform/Export.h"

namespace nvxcore {

class ApplicationFacts;
class BackgroundTasks;
class ConsoleSink;
class DeviceFacts;
class HTTPSessionService;
class MainLoop;
class NotificationCenter;
class PreferencesService;
class Reachability;
class Threading;

/// The seams to the platform. What a host leaves empty is the real implementation for this system, so that a
/// host with nothing to say installs nothing.
struct NVXCORE_EXPORT Platform {
  std::shared_ptr<Threading> threading = nullptr;
  std::shared_ptr<MainLoop> mainLoop = nullptr;
  std::shared_ptr<NotificationCenter> notificationCenter = nullptr;
  std::shared_ptr<HTTPSessionService> httpSessionService = nullptr;
  std::shared_ptr<BackgroundTasks> backgroundTasks = nullptr;
  std::shared_ptr<ApplicationFacts> application = nullptr;
  std::shared_ptr<DeviceFacts> device = nullptr;
  std::shared_ptr<ConsoleSink> console = nullptr;
  std::shared_ptr<PreferencesService> preferences = nullptr;
  std::shared_ptr<Reachability> reachability = nullptr;

  /// Replaces the seams that are set in `platform`. Only before the first use of the library; false, and
  /// nothing changed, after it. Any thread.
  static bool install(Platform platform);
  /// The seams in force, none empty. The first call settles them for the process. Any thread; never blocks on
  /// host code.
  static const Platform& current();
};

/// What a queue has to do.
struct QueueSnapshot {
  std::string label;
  size_t waiting = 0;
  bool running = false;
};

/// What the library runs on, at one moment.
struct RuntimeSnapshot {
  std::vector<QueueSnapshot> queues;  ///< Those with a task waiting or running.
  std::vector<std::string>
      threads;                ///< Names of the threads that the library has started and that have not ended.
  size_t blockedWorkers = 0;  ///< Threads of the blocking pool that run a task.
  size_t armedTimers = 0;     ///< Delayed tasks and timers; those on a host's main loop are not seen.
};

/// Any thread.
NVXCORE_EXPORT RuntimeSnapshot takeRuntimeSnapshot();
/// The most threads that the library may have at one time, those of the HTTP service, its resolvers and the
/// reachability included.
NVXCORE_EXPORT size_t maximumThreadCount();

}  // namespace nvxcore
