#include "nvxcore/platform/MainLoop.h"

#include <memory>
#include <string>
#include <vector>

#include "nvxcore/platform/Platform.h"
#include "nvxcore/platform/Queue.h"
#include "nvxcore/platform/Semaphore.h"
#include "tests/support/ManualTime.h"
#include "tests/support/NVXTest.h"
#include "tests/support/PlatformScope.h"

namespace nvxcore::testing {
namespace {

using TimerRef = std::shared_ptr<Timer>;

class MainLoopTest : public NVXTest {
 protected:
  MainLoop& loop() { return *Platform::current().mainLoop; }
  void advance(TimeInterval seconds) {
    time->advance(seconds);
    ASSERT_TRUE(scope.settle());
  }

  const std::shared_ptr<ManualTime> time = std::make_shared<ManualTime>();
  PlatformScope scope{Platform{.threading = time}};
};

TEST_F(MainLoopTest, RunsPostedTasksInOrderAndDelayedOnesWhenDue) {
  std::string order;
  loop().post([&] {
    loop().post([&] {
      order += 'a';
      loop().post([&] { order += 'd'; });
      loop().postAfter(0, [&] { order += 'e'; });
      order += 'b';
    });
    loop().post([&] { order += 'c'; });
  });
  ASSERT_TRUE(scope.settle());
  EXPECT_EQ(order, "abcde");
  loop().postAfter(2, [&] { order += 'g'; });
  loop().postAfter(1, [&] { order += 'f'; });
  const uint64_t cancelled = loop().postAfter(1, [&] { order += 'x'; });
  loop().cancel(cancelled);
  loop().cancel(cancelled);
  advance(1);
  EXPECT_EQ(order, "abcdef");
  advance(1);
  EXPECT_EQ(order, "abcdefg");
}

TEST_F(MainLoopTest, ATaskThatIsDueCanStillBeCancelledOnTheMainThread) {
  uint64_t second = 0;
  bool ran = false;
  loop().postAfter(1, [&] { loop().cancel(second); });
  second = loop().postAfter(1, [&] { ran = true; });
  advance(1);
  EXPECT_FALSE(ran);
}

TEST_F(MainLoopTest, ANestedTurnGoesOnWhereTheOuterOneStands) {
  std::string order;
  Semaphore posted(0);
  loop().post([&] {
    posted.wait();
    order += '1';
    loop().turn(0);  // runs the next ones
    order += '4';
  });
  loop().post([&] {
    order += '2';
    loop().post([&] { order += '5'; });
  });
  loop().post([&] { order += '3'; });
  posted.signal();
  ASSERT_TRUE(scope.settle());
  EXPECT_EQ(order, "12345");
}

TEST_F(MainLoopTest, ATurnWaitsForWorkOrForItsEnd) {
  Semaphore turning(0), done(0);
  bool answered = false;
  int turns = 0;
  loop().post([&] {
    turning.signal();
    while (!answered) {
      loop().turn(1000);
      ++turns;
    }
    done.signal();
  });
  turning.wait();
  loop().post([&] { answered = true; });
  done.wait();
  EXPECT_EQ(turns, 1);

  loop().post([&] {
    const int64_t start = Platform::current().threading->monotonicNanos();
    turning.signal();
    loop().turn(2);
    EXPECT_GE(Platform::current().threading->monotonicNanos() - start, 2'000'000'000);
    done.signal();
  });
  turning.wait();
  while (!done.wait(0)) time->advance(0.5);
}

TEST_F(MainLoopTest, TimersFireOnTheMainThread) {
  std::string log;
  const TimerRef once = Timer::schedule(1, 0, false, [&](const TimerRef& timer) {
    EXPECT_TRUE(Queue::main()->isCurrent());
    EXPECT_EQ(timer->interval(), 1);
    log += 'o';
  });
  const TimerRef repeating = Timer::schedule(1, 0, true, [&](const TimerRef&) { log += 'r'; });
  advance(0.5);
  EXPECT_EQ(log, "");
  advance(0.5);
  EXPECT_EQ(log, "or");
  EXPECT_FALSE(once->isValid());
  EXPECT_TRUE(repeating->isValid());
  advance(1);
  EXPECT_EQ(log, "orr");
  advance(3.25);  // Missed ones are not made up for, and the beat is kept.
  EXPECT_EQ(log, "orrr");
  advance(0.75);
  EXPECT_EQ(log, "orrrr");
  repeating->invalidate();
  repeating->invalidate();
  advance(10);
  EXPECT_EQ(log, "orrrr");
  EXPECT_EQ(takeRuntimeSnapshot().armedTimers, 0u);
}

TEST_F(MainLoopTest, AnInvalidatedTimerDropsItsHandlerAndFiresNoMore) {
  auto held = std::make_shared<int>(0);
  const std::weak_ptr<int> weak = held;
  int fired = 0;
  TimerRef other;
  // Both are due at once: the first one ends the second.
  const TimerRef first = Timer::schedule(1, 0, false, [&](const TimerRef&) { other->invalidate(); });
  other = Timer::schedule(1, 0, true, [&fired, held = std::move(held)](const TimerRef&) { ++fired; });
  advance(1);
  EXPECT_EQ(fired, 0);
  EXPECT_TRUE(weak.expired());

  // From its own handler, which is still whole after that.
  const TimerRef self =
      Timer::schedule(1, 0, true, [&fired, text = std::string(100, 'x')](const TimerRef& timer) {
        timer->invalidate();
        EXPECT_EQ(text, std::string(100, 'x'));
        ++fired;
      });
  advance(5);
  EXPECT_EQ(fired, 1);
}

TEST_F(MainLoopTest, ATimerLivesWithTheLoopAndFiresWithinItsTolerance) {
  int fired = 0;
  std::weak_ptr<Timer> weak = Timer::schedule(1, 0.5, false, [&](const TimerRef&) { ++fired; });
  EXPECT_FALSE(weak.expired());
  advance(0.999);
  EXPECT_EQ(fired, 0);
  advance(0.501);
  EXPECT_EQ(fired, 1);
  EXPECT_TRUE(weak.expired());
}

/// A host's loop: the test's thread turns it.
class HostLoop final : public MainLoop {
 public:
  void post(Task task) override { tasks.push_back(std::move(task)); }
  uint64_t postAfter(TimeInterval, Task task) override {
    tasks.push_back(std::move(task));
    return tasks.size();
  }
  void cancel(uint64_t) override {}
  bool isCurrent() const override { return current; }
  void turn(TimeInterval) override {
    current = true;
    for (Task& task : std::exchange(tasks, {})) task();
    current = false;
  }
  std::vector<Task> tasks;
  bool current = false;
};

TEST(HostLoopTest, TheMainQueueIsTheHostsLoop) {
  const auto loop = std::make_shared<HostLoop>();
  PlatformScope scope(Platform{.mainLoop = loop});
  bool ran = false;
  Queue::main()->post(
      [&] { ran = Queue::main()->isCurrent() && Queue::currentLabel() == Queue::main()->label(); });
  EXPECT_FALSE(Queue::main()->isCurrent());
  loop->turn(0);
  EXPECT_TRUE(ran);
  EXPECT_TRUE(takeRuntimeSnapshot().threads.empty());
}

}  // namespace
}  // namespace nvxcore::testing
