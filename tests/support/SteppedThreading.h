#pragma once

#include <memory>
#include <string>
#include <vector>

#include "nvxcore/platform/Threading.h"
#include "nvxcore/platform/TimeInterval.h"
#include "tests/support/JumpListeners.h"

namespace nvxcore::testing {

/// Threads of which one runs at a time, chosen anew by a generator from `seed` at each point where it
/// matters: a parker is used, a thread starts or ends, or a Mutex is about to be taken by a thread that holds
/// none. The same seed runs the same program through the same schedule. Time is virtual, and jumps to the
/// next deadline when all are parked.
///
/// The thread that makes the object, the test's, is never interrupted: the others run while it waits for
/// something (a semaphore, a group), or calls `runUntilIdle` or `runFor`. Other threads of the process must
/// stay away.
///
/// A wait that nothing can end any more, a thread that parks while it holds a Mutex, and one that reaches no
/// such point for a minute end the process, after a report of who waits where.
class SteppedThreading final : public Threading {
 public:
  explicit SteppedThreading(uint64_t seed);
  /// All threads must have ended.
  ~SteppedThreading() override;

  /// Runs the other threads until all have ended or are parked without a deadline.
  void runUntilIdle();
  /// Runs them until `seconds` have passed and nobody can go on without time passing further.
  void runFor(TimeInterval seconds);

  /// Stands for all choices so far: equal for equal schedules.
  uint64_t scheduleHash() const { return _hash; }
  /// How often there was something to choose.
  uint64_t choices() const { return _choices; }
  /// Who waits where, a paragraph with the stack of each thread.
  std::string report();

  std::unique_ptr<ThreadHandle> startThread(const std::string& name, Task body) override;
  std::unique_ptr<Parker> makeParker() override;
  int64_t monotonicNanos() override { return _now; }
  int64_t wallClockNanos() override;
  int64_t uptimeNanos() override { return _now; }
  bool timeIsManual() const override { return true; }
  std::shared_ptr<void> addJumpListener(std::function<void()> listener) override;

 private:
  struct Participant;
  class SteppedParker;
  class Handle;
  class Observer;
  using ParticipantRef = std::shared_ptr<Participant>;

  void runUntil(int64_t limit);
  void maySwitch();
  void block(const char* reason);
  void makeRunnable(Participant& participant);
  Participant& next(Participant* current);
  bool jump();
  uint64_t random();
  void take(Participant& participant);
  void describe(const Participant& participant);
  Participant& self() const;
  [[noreturn]] void fail(const std::string& why);

  static thread_local Participant* _current;  // whom this thread is

  int64_t _now;
  uint64_t _state;
  uint64_t _stay;  // how often out of 8 a running thread goes on without a choice
  uint64_t _hash = 0xcbf29ce484222325;
  uint64_t _choices = 0;
  std::vector<ParticipantRef> _participants;  // the test's first
  std::vector<Participant*> _runnable;
  bool _idling = false;  // the test's thread waits until there is nothing to run
  int64_t _idleLimit = 0;
  bool _jumping = false;
  Participant* _reporter = nullptr;  // collects the others' stacks
  std::string _report;
  JumpListeners _listeners;
};

}  // namespace nvxcore::testing
