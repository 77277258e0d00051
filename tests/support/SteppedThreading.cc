#include "tests/support/SteppedThreading.h"

#include <execinfo.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <utility>

#include "nvxcore/platform/Mutex.h"
#include "nvxcore/platform/internal/Deadline.h"
#include "nvxcore/platform/internal/PoolQueue.h"
#include "tests/support/CarrierThread.h"

namespace nvxcore::testing {

namespace {

constexpr int64_t kSecond = 1'000'000'000;
constexpr int64_t kStart = 1000 * kSecond;
constexpr int64_t kWallClockOffset = 1'577'836'800 * kSecond - kStart;
constexpr int kMostSecondsWithoutSwitch = 60;

}  // namespace

struct SteppedThreading::Participant {
  SteppedThreading* owner;
  std::string name;
  CarrierThread* carrier = nullptr;  // null for the test's thread
  Baton ownBaton;
  Participant* joiner = nullptr;
  const char* blockedIn = nullptr;  // null while it can run
  int64_t deadline = kNeverNanos;
  int locks = 0;
  bool begun = false;
  bool ended = false;

  Baton& baton() { return carrier ? carrier->baton() : ownBaton; }
};

thread_local SteppedThreading::Participant* SteppedThreading::_current = nullptr;

/// Counts the locks that a thread holds, and lets others run before it takes its first one.
class SteppedThreading::Observer final : public LockObserver {
 public:
  void willLock() override {
    if (Participant* participant = _current) {
      participant->owner->maySwitch();
      ++participant->locks;
    }
  }
  void didUnlock() override {
    if (_current && _current->locks > 0) --_current->locks;
  }
};

class SteppedThreading::SteppedParker final : public Parker {
 public:
  explicit SteppedParker(SteppedThreading& owner) : _owner(owner) {}

  void park() override { parkUntil(kNeverNanos); }

  bool parkUntil(int64_t deadlineNanos) override {
    _owner.maySwitch();
    if (!_token && deadlineNanos > _owner._now) {
      Participant& self = _owner.self();
      _waiter = &self;
      self.deadline = deadlineNanos;
      _owner.block("park");
      _waiter = nullptr;
    }
    return std::exchange(_token, false);
  }

  void unpark() override {
    _token = true;
    if (_waiter) _owner.makeRunnable(*_waiter);
    _owner.maySwitch();
  }

 private:
  SteppedThreading& _owner;
  Participant* _waiter = nullptr;
  bool _token = false;
};

class SteppedThreading::Handle final : public ThreadHandle {
 public:
  Handle(SteppedThreading& owner, ParticipantRef participant)
      : _owner(owner), _participant(std::move(participant)) {}

  void join() override {
    _owner.maySwitch();
    if (_participant->ended) return;
    _participant->joiner = &_owner.self();
    _owner.block("join");
  }

 private:
  SteppedThreading& _owner;
  const ParticipantRef _participant;
};

SteppedThreading::SteppedThreading(uint64_t seed) : _now(kStart), _state(seed) {
  static Observer& observer = *new Observer;
  constexpr uint64_t kStays[] = {0, 4, 6, 7};
  _stay = kStays[random() % std::size(kStays)];
  auto test = std::make_shared<Participant>();
  test->owner = this;
  test->name = "test";
  test->begun = true;
  _participants.push_back(test);
  if (_current) fail("two schedules at a time on one thread");
  _current = test.get();
  LockObserver::current = &observer;
}

SteppedThreading::~SteppedThreading() {
  for (const ParticipantRef& participant : _participants) {
    if (participant != _participants.front() && !participant->ended)
      fail("a schedule ends before its threads");
  }
  LockObserver::current = nullptr;
  _current = nullptr;
}

void SteppedThreading::runUntilIdle() { runUntil(kNeverNanos); }

void SteppedThreading::runFor(TimeInterval seconds) { runUntil(deadlineAfter(_now, seconds)); }

void SteppedThreading::runUntil(int64_t limit) {
  if (&self() != _participants.front().get()) fail("only the test's thread may run the others");
  _idling = true;
  _idleLimit = limit;
  Participant& chosen = next(nullptr);
  if (&chosen != &self()) {
    chosen.baton().give();
    take(self());
  }
  _idling = false;
}

std::unique_ptr<ThreadHandle> SteppedThreading::startThread(const std::string& name, Task body) {
  auto participant = std::make_shared<Participant>();
  participant->owner = this;
  participant->name = name;
  auto shared = std::make_shared<Task>(std::move(body));
  participant->carrier = &CarrierThread::obtain([this, participant, shared](CarrierThread& carrier) {
    _current = participant.get();
    participant->begun = true;
    (*shared)();
    participant->ended = true;
    if (participant->joiner) makeRunnable(*participant->joiner);
    std::erase(_runnable, participant.get());
    _current = nullptr;
    Participant& chosen = next(nullptr);
    carrier.setFree();
    chosen.baton().give();
  });
  _participants.push_back(participant);
  _runnable.push_back(participant.get());
  maySwitch();
  return std::make_unique<Handle>(*this, std::move(participant));
}

std::unique_ptr<Parker> SteppedThreading::makeParker() { return std::make_unique<SteppedParker>(*this); }

int64_t SteppedThreading::wallClockNanos() { return _now + kWallClockOffset; }

std::shared_ptr<void> SteppedThreading::addJumpListener(std::function<void()> listener) {
  return _listeners.add(std::move(listener));
}

SteppedThreading::Participant& SteppedThreading::self() const {
  if (_current && _current->owner == this) return *_current;
  std::fputs("SteppedThreading: used by a thread that is no part of the schedule\n", stderr);
  std::abort();
}

/// A point at which another thread may go on instead of the calling one.
void SteppedThreading::maySwitch() {
  Participant& current = self();
  if (_jumping || current.locks > 0 || &current == _participants.front().get()) return;
  Participant& chosen = next(&current);
  if (&chosen == &current) return;
  chosen.baton().give();
  take(current);
}

/// Lets others run until the calling thread was made runnable again.
void SteppedThreading::block(const char* reason) {
  Participant& current = self();
  if (current.locks > 0) fail("the thread " + current.name + " waits while it holds a lock");
  current.blockedIn = reason;
  std::erase(_runnable, &current);
  Participant& chosen = next(nullptr);
  if (&chosen != &current) {
    chosen.baton().give();
    take(current);
  }
  // The test's thread is never one to choose while it runs.
  if (!current.carrier) std::erase(_runnable, &current);
}

void SteppedThreading::makeRunnable(Participant& participant) {
  if (!participant.blockedIn) return;
  participant.blockedIn = nullptr;
  participant.deadline = kNeverNanos;
  _runnable.push_back(&participant);
}

SteppedThreading::Participant& SteppedThreading::next(Participant* current) {
  while (_runnable.empty()) {
    if (jump()) continue;
    if (_idling) return *_participants.front();
    fail("all threads wait, and nothing can end that");
  }
  if (_runnable.size() == 1) return *_runnable.front();
  if (current && random() % 8 < _stay) return *current;
  const uint64_t index = random() % _runnable.size();
  ++_choices;
  _hash = (_hash ^ (index + 1)) * 0x100000001b3;
  return *_runnable[index];
}

/// Moves time to the next deadline. False when there is none, or only beyond what the test allows.
bool SteppedThreading::jump() {
  int64_t earliest = kNeverNanos;
  for (const ParticipantRef& participant : _participants)
    earliest = std::min(earliest, participant->deadline);
  if (_idling && earliest > _idleLimit) earliest = _idleLimit;
  if (earliest == kNeverNanos) return false;
  _now = std::max(_now, earliest);
  _hash = (_hash ^ static_cast<uint64_t>(_now)) * 0x100000001b3;
  for (const ParticipantRef& participant : _participants) {
    if (participant->deadline <= _now) makeRunnable(*participant);
  }
  _jumping = true;
  _listeners.call();
  _jumping = false;
  return !_runnable.empty();
}

// One addition and a mix of its bits (Steele, Lea and Flood 2014): any seed will do.
uint64_t SteppedThreading::random() {
  uint64_t bits = _state += 0x9e3779b97f4a7c15;
  bits = (bits ^ (bits >> 30)) * 0xbf58476d1ce4e5b9;
  bits = (bits ^ (bits >> 27)) * 0x94d049bb133111eb;
  return bits ^ (bits >> 31);
}

/// Waits for the baton. Meanwhile a reporter may lend it for the thread's stack.
void SteppedThreading::take(Participant& participant) {
  const int seconds = participant.carrier ? 0 : kMostSecondsWithoutSwitch;
  for (;;) {
    if (!participant.baton().take(seconds)) {
      std::fputs("SteppedThreading: a thread reaches no switch point; does it wait for a lock?\n", stderr);
      std::abort();
    }
    if (!_reporter || _reporter == &participant) return;
    describe(participant);
    _reporter->baton().give();
  }
}

std::string SteppedThreading::report() {
  _report.clear();
  _reporter = &self();
  for (const ParticipantRef& participant : _participants) {
    if (participant->ended) continue;
    if (participant.get() == _reporter || !participant->begun) {
      describe(*participant);
    } else {
      participant->baton().give();
      take(*_reporter);
    }
  }
  _reporter = nullptr;
  return std::exchange(_report, {});
}

/// Adds the calling thread to the report, or one that has not begun.
void SteppedThreading::describe(const Participant& participant) {
  _report += participant.name + ": " + (participant.blockedIn ? participant.blockedIn : "can run");
  if (participant.deadline != kNeverNanos) {
    _report += ", for " + std::to_string(participant.deadline - _now) + " ns";
  }
  if (!participant.begun) _report += ", not begun";
  if (&participant == _current) {
    if (const PoolQueue* queue = PoolQueue::current()) _report += ", on the queue \"" + queue->label() + "\"";
    void* frames[32];
    const int count = backtrace(frames, static_cast<int>(std::size(frames)));
    char** symbols = backtrace_symbols(frames, count);
    for (int i = 0; symbols && i < count; ++i) _report += std::string("\n    ") + symbols[i];
    std::free(symbols);
  }
  _report += '\n';
}

void SteppedThreading::fail(const std::string& why) {
  const std::string text =
      "SteppedThreading: " + why + "\n" + (_current && _current->owner == this ? report() : "");
  std::fputs(text.c_str(), stderr);
  std::abort();
}

}  // namespace nvxcore::testing
