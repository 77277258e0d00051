#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "nvxcore/platform/MainLoop.h"
#include "nvxcore/platform/Mutex.h"
#include "nvxcore/platform/Platform.h"
#include "nvxcore/platform/Threading.h"
#include "nvxcore/platform/internal/TaskList.h"
#include "nvxcore/platform/internal/TimerHeap.h"

namespace nvxcore {

class Executors;

/// The main loop that the library runs where the host has none: on a thread of its own, which starts with the
/// first task and stays, parked while there is nothing to do.
class ThreadMainLoop final : public MainLoop {
 public:
  explicit ThreadMainLoop(std::shared_ptr<Executors> executors);

  void post(Task task) override NVX_EXCLUDES(_mutex);
  uint64_t postAfter(TimeInterval delay, Task task) override NVX_EXCLUDES(_mutex);
  void cancel(uint64_t delayedTask) override NVX_EXCLUDES(_mutex);
  bool isCurrent() const override;
  void turn(TimeInterval interval) override NVX_EXCLUDES(_mutex);

  QueueSnapshot snapshot() NVX_EXCLUDES(_mutex);
  size_t armed() NVX_EXCLUDES(_mutex);
  int64_t nextDeadline() NVX_EXCLUDES(_mutex);
  void dropDelayed() NVX_EXCLUDES(_mutex);
  /// Ends the thread. Nothing may be posted any more.
  void stop() NVX_EXCLUDES(_mutex);

 private:
  enum class Wake { kNone, kStart, kUnpark };
  /// What stands ready when a round begins.
  struct Round {
    int64_t now;
    size_t posted;
    uint64_t delayedBefore;
    bool running = false;
  };

  Wake wakeFor(int64_t deadlineNanos) NVX_REQUIRES(_mutex);
  void perform(Wake wake);
  void run() NVX_EXCLUDES(_mutex);
  bool runRound() NVX_EXCLUDES(_mutex);
  bool takeNext(Round& round, Task& task) NVX_EXCLUDES(_mutex);
  void await(int64_t deadlineNanos, bool resting) NVX_EXCLUDES(_mutex);

  const std::shared_ptr<Executors> _executors;
  const std::unique_ptr<Parker> _parker;

  Mutex _mutex;
  TaskList _posted NVX_GUARDED_BY(_mutex);
  TimerHeap _delayed NVX_GUARDED_BY(_mutex);
  bool _started NVX_GUARDED_BY(_mutex) = false;
  bool _stopped NVX_GUARDED_BY(_mutex) = false;
  bool _resting NVX_GUARDED_BY(_mutex) = true;  // nothing to do, and not counted as activity
  size_t _running NVX_GUARDED_BY(_mutex) = 0;   // tasks, more than one when turns nest
  int64_t _wakesAt NVX_GUARDED_BY(_mutex);      // what the thread waits for; in the past while it is awake
};

}  // namespace nvxcore
