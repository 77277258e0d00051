#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "nvxcore/platform/Export.h"
#include "nvxcore/platform/Task.h"
#include "nvxcore/platform/TimeInterval.h"

namespace nvxcore {

class DispatchGroup;
class Queue;
using QueueRef = std::shared_ptr<Queue>;

/// An executor of tasks, with a label. A host may implement it over a queue of its own.
///
/// All operations may be called on any thread. A serial queue runs one task at a time, in the order of
/// posting; what one task wrote the next one sees. A queue that is dropped with tasks waiting runs them
/// first.
class NVXCORE_EXPORT Queue : public std::enable_shared_from_this<Queue> {
 public:
  virtual ~Queue() = default;

  /// Runs `task` later on this queue; never before returning on the calling thread's stack.
  virtual void post(Task task) = 0;
  /// Runs `task` on this queue once `delay` seconds have passed on the seam's clock.
  virtual void postAfter(TimeInterval delay, Task task) = 0;
  virtual const std::string& label() const = 0;
  /// True on a thread that is running a task of this queue.
  virtual bool isCurrent() const = 0;

  /// As `post`, counted in `group` until the task has run and was destroyed.
  void post(DispatchGroup& group, Task task);

  /// A new serial queue. An idle one holds no thread.
  static QueueRef serial(std::string_view label);
  /// A new concurrent queue: its tasks start in order and may overlap, up to eight of them.
  static QueueRef concurrent(std::string_view label);
  /// The serial queue of the main loop.
  static QueueRef main();
  /// The process-wide concurrent queue. Tasks on it must not block.
  static QueueRef global();
  /// The process-wide concurrent queue for work that blocks: each waiting task holds a thread of an elastic
  /// pool, so that no amount of it keeps other queues from running.
  static QueueRef blocking();
  /// The label of the queue whose task runs on this thread, else the empty string.
  static const std::string& currentLabel();
};

/// While one is open on a thread, a queue that is posted to may have its turn on that thread, once the task
/// that runs there has ended, which saves waking another one. To be opened by a task of a queue that is about
/// to end, and that waits for nothing meanwhile. It has no effect elsewhere.
class NVXCORE_EXPORT HandOffScope {
 public:
  HandOffScope();
  ~HandOffScope();
  HandOffScope(const HandOffScope&) = delete;
  HandOffScope& operator=(const HandOffScope&) = delete;

  static bool isOpen();
  /// Gives what the current task has handed off to another thread: a host's code is about to be called, which
  /// may wait for anything.
  static void settle();

 private:
  const bool _wasOpen;
};

/// Counts tasks or explicit entries, so that somebody can wait until all have left.
/// All operations may be called on any thread.
class NVXCORE_EXPORT DispatchGroup {
 public:
  DispatchGroup();
  ~DispatchGroup();
  DispatchGroup(const DispatchGroup&) = delete;
  DispatchGroup& operator=(const DispatchGroup&) = delete;

  void enter();
  /// Must follow an `enter`. The last one wakes the waiters and posts what `notify` left.
  void leave();
  /// Waits until the group is empty, at most `timeout` seconds; 0 only looks. True when it was empty.
  bool wait(TimeInterval timeout);
  /// Posts `task` to `queue` once the group is empty, at once when it is.
  void notify(const QueueRef& queue, Task task);

 private:
  struct State;
  std::shared_ptr<State> _state;
  friend class Queue;
};

}  // namespace nvxcore
