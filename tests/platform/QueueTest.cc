#include "nvxcore/platform/Queue.h"

#include <array>
#include <atomic>
#include <cstdlib>
#include <memory>
#include <new>
#include <numeric>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "nvxcore/platform/MainLoop.h"
#include "nvxcore/platform/Platform.h"
#include "nvxcore/platform/Semaphore.h"
#include "nvxcore/platform/Threading.h"
#include "tests/support/ManualTime.h"
#include "tests/support/NVXTest.h"
#include "tests/support/PlatformScope.h"

namespace {
thread_local size_t allocations = 0;  // of this thread
}  // namespace

// The sanitizers bring functions of their own, and allocations are not counted there.
#if defined(__has_feature)
#if __has_feature(thread_sanitizer) || __has_feature(address_sanitizer)
#define NVXCORE_ALLOCATOR_IS_TAKEN
#endif
#endif
#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
#define NVXCORE_ALLOCATOR_IS_TAKEN
#endif

#if !defined(NVXCORE_ALLOCATOR_IS_TAKEN)
// Not inlined: the compiler would take the pair for a mismatch.
[[gnu::noinline]] void* operator new(size_t size) {
  ++allocations;
  if (void* memory = std::malloc(size)) return memory;
  throw std::bad_alloc();
}
[[gnu::noinline]] void operator delete(void* memory) noexcept { std::free(memory); }
[[gnu::noinline]] void operator delete(void* memory, size_t) noexcept { std::free(memory); }
#endif

namespace nvxcore::testing {
namespace {

constexpr TimeInterval kPatience = 10;

/// Real threads on time that only the test moves.
class QueueTest : public NVXTest {
 protected:
  size_t threads() { return takeRuntimeSnapshot().threads.size(); }

  const std::shared_ptr<ManualTime> time = std::make_shared<ManualTime>();
  PlatformScope scope{Platform{.threading = time}};
};

TEST_F(QueueTest, ASerialQueueRunsTheTasksOfEachThreadInOrderAndOneAtATime) {
  constexpr int kThreads = 4, kTasks = 5000;
  const QueueRef queue = Queue::serial("serial");
  std::vector<std::vector<int>> seen(kThreads);
  std::atomic<int> inside{0};
  bool overlapped = false;
  std::vector<std::unique_ptr<ThreadHandle>> posters;
  for (int thread = 0; thread < kThreads; ++thread) {
    posters.push_back(Platform::current().threading->startThread("poster", [&, thread] {
      for (int i = 0; i < kTasks; ++i) {
        queue->post([&, thread, i] {
          overlapped |= ++inside != 1;
          seen[thread].push_back(i);
          --inside;
        });
      }
    }));
  }
  for (const auto& poster : posters) poster->join();
  ASSERT_TRUE(scope.settle());
  std::vector<int> expected(kTasks);
  std::iota(expected.begin(), expected.end(), 0);
  for (const auto& order : seen) EXPECT_EQ(order, expected);
  EXPECT_FALSE(overlapped);
}

TEST_F(QueueTest, TheCurrentQueueIsTheOneWhoseTaskRuns) {
  const QueueRef outer = Queue::serial("outer"), inner = Queue::concurrent("inner");
  EXPECT_EQ(Queue::currentLabel(), "");
  outer->post([&] {
    EXPECT_TRUE(outer->isCurrent());
    EXPECT_FALSE(inner->isCurrent());
    EXPECT_EQ(Queue::currentLabel(), "outer");
    inner->post([&] { EXPECT_TRUE(inner->isCurrent() && Queue::currentLabel() == "inner"); });
    Queue::main()->post([&] {
      EXPECT_TRUE(Queue::main()->isCurrent() && !outer->isCurrent());
      EXPECT_EQ(Queue::currentLabel(), Queue::main()->label());
    });
  });
  EXPECT_TRUE(scope.settle());
  EXPECT_FALSE(outer->isCurrent());
}

TEST_F(QueueTest, ADroppedQueueRunsWhatWaits) {
  Semaphore gate(0);
  int ran = 0;
  QueueRef queue = Queue::serial("dropped");
  std::weak_ptr<Queue> weak = queue;
  queue->post([&] { gate.wait(); });
  for (int i = 0; i < 100; ++i) queue->post([&] { ++ran; });
  queue->postAfter(1, [&] { ++ran; });
  queue.reset();
  gate.signal();
  ASSERT_TRUE(scope.settle());
  EXPECT_EQ(ran, 100);
  time->advance(1);
  ASSERT_TRUE(scope.settle());
  EXPECT_EQ(ran, 101);
  EXPECT_TRUE(weak.expired());
}

TEST_F(QueueTest, ATasksClosureGoesBeforeTheNextTaskRuns) {
  const QueueRef queue = Queue::serial("closures");
  Semaphore gate(0);
  queue->post([&] { gate.wait(); });
  auto held = std::make_shared<int>(0);
  std::weak_ptr<int> weak = held;
  bool gone = false;
  queue->post([held] {});
  held.reset();
  queue->post([&] { gone = weak.expired(); });
  gate.signal();
  ASSERT_TRUE(scope.settle());
  EXPECT_TRUE(gone);
}

TEST_F(QueueTest, BlockedTasksKeepNoQueueFromRunning) {
  constexpr size_t kBlocked = 200;
  Semaphore gate(0);
  DispatchGroup blocked, others;
  for (size_t i = 0; i < kBlocked; ++i) Queue::blocking()->post(blocked, [&] { gate.wait(); });
  // All feeders of the blocked ones: serial queues, the concurrent one and the main loop.
  for (int i = 0; i < 20; ++i) Queue::serial("feeder")->post(others, [] {});
  Queue::global()->post(others, [] {});
  Queue::main()->post(others, [] {});
  Semaphore done(0);
  others.notify(Queue::global(), [&] { done.signal(); });
  done.wait();
  EXPECT_FALSE(blocked.wait(0));
  EXPECT_EQ(takeRuntimeSnapshot().blockedWorkers, kBlocked);
  for (size_t i = 0; i < kBlocked; ++i) gate.signal();
  EXPECT_TRUE(scope.settle());
}

TEST_F(QueueTest, AQueueThatIsHandedOffRunsOnThePostersThreadUnlessThatGoesOn) {
  const QueueRef from = Queue::serial("from"), to = Queue::serial("to");
  std::thread::id poster, runner;
  Semaphore done(0), gate(0), posted(0);
  const auto handOff = [&](const QueueRef& queue) {
    HandOffScope scope;
    queue->post([&] {
      runner = std::this_thread::get_id();
      done.signal();
    });
    poster = std::this_thread::get_id();
  };
  for (const QueueRef& queue : {to, Queue::blocking()}) {
    from->post([&] {
      handOff(queue);
      EXPECT_FALSE(done.wait(0));  // Not before the task has ended.
    });
    done.wait();
    EXPECT_EQ(runner, poster) << queue->label();
    EXPECT_TRUE(scope.settle());
  }
  // The next task of the posting queue waits for what was handed off.
  from->post([&] {
    posted.wait();
    handOff(to);
  });
  from->post([&] { done.wait(); });
  posted.signal();
  EXPECT_TRUE(scope.settle());
  // Even the posting task itself may, and wait by means of its own once it has said so.
  for (const QueueRef& queue : {from, Queue::global()}) {
    queue->post([&] {
      handOff(to);
      done.wait();
    });
    EXPECT_TRUE(scope.settle());
  }
  std::atomic<bool> ran{false};
  from->post([&] {
    {
      HandOffScope handsOff;
      to->post([&] {
        ran = true;
        ran.notify_one();
      });
    }
    HandOffScope::settle();
    ran.wait(false);
  });
  EXPECT_TRUE(scope.settle());
  // Two at once, and from a thread that is no worker's.
  const auto handOffPlain = [&](const QueueRef& queue) {
    HandOffScope handsOff;
    queue->post([&] { done.signal(); });
  };
  from->post([&] {
    handOffPlain(to);
    handOffPlain(Queue::global());
  });
  handOffPlain(to);
  for (int i = 0; i < 3; ++i) done.wait();
  EXPECT_TRUE(scope.settle());
}

TEST_F(QueueTest, WithAllWorkersTakenQueuesTakeTurns) {
  Semaphore gate(0), taken(0);
  std::vector<QueueRef> holders;
  for (int i = 0; i < 63; ++i) {
    holders.push_back(Queue::serial("holder"));
    holders.back()->post([&] {
      taken.signal();
      gate.wait();
    });
  }
  for (int i = 0; i < 63; ++i) taken.wait();
  // One worker is left, for a queue with a great deal to do and one with little.
  const QueueRef busy = Queue::serial("busy"), modest = Queue::serial("modest");
  int busyRan = 0, busyRanBefore = -1;
  Semaphore begun(0), go(0);
  busy->post([&] {
    begun.signal();
    go.wait();
  });
  begun.wait();
  for (int i = 0; i < 10'000; ++i) busy->post([&] { ++busyRan; });
  modest->post([&] { busyRanBefore = busyRan; });
  go.signal();
  DispatchGroup end;
  busy->post(end, [] {});
  Semaphore ended(0);
  end.notify(modest, [&] { ended.signal(); });
  ended.wait();
  for (int i = 0; i < 63; ++i) gate.signal();
  ASSERT_TRUE(scope.settle());
  EXPECT_EQ(busyRan, 10'000);
  EXPECT_LT(busyRanBefore, 100);
}

TEST_F(QueueTest, AConcurrentQueueStartsInOrderAndOverlaps) {
  const QueueRef queue = Queue::concurrent("wide");
  Semaphore first(0), second(0);
  // Each needs the other at work.
  queue->post([&] {
    first.signal();
    second.wait();
  });
  queue->post([&] {
    second.signal();
    first.wait();
  });
  EXPECT_TRUE(scope.settle());
}

TEST_F(QueueTest, AQueueThatComesAndGoesNeedsOneThread) {
  const QueueRef queue = Queue::serial("pulsing");
  std::atomic<int> ran{0};
  for (int i = 0; i < 20'000; ++i) {
    queue->post([&] { ++ran; });
    if (i % 3 == 0) {
      while (ran.load() <= i) std::this_thread::yield();
    }
  }
  ASSERT_TRUE(scope.settle());
  EXPECT_EQ(threads(), 1u);
}

TEST_F(QueueTest, ThreadsEndWhenThereIsNothingToDo) {
  EXPECT_EQ(threads(), 0u);
  Semaphore ran(0);
  for (int i = 0; i < 10; ++i) Queue::serial("short")->post([&] { ran.signal(); });
  Queue::blocking()->post([&] { ran.signal(); });
  Queue::global()->postAfter(1, [&] { ran.signal(); });
  for (int i = 0; i < 11; ++i) ran.wait();
  time->advance(1);
  ran.wait();
  ASSERT_TRUE(scope.settle());
  EXPECT_GE(threads(), 2u);
  EXPECT_LE(threads(), maximumThreadCount());
  // They look at the clock for the last time once they are parked, which may be a moment after their queues
  // rest.
  while (threads() > 0) {
    time->advance(6);
    std::this_thread::yield();
  }
  Queue::serial("again")->post([&] { ran.signal(); });
  ran.wait();
  EXPECT_EQ(takeRuntimeSnapshot().threads, std::vector<std::string>{"nvx.worker"});
}

TEST_F(QueueTest, DelayedTasksRunInTheOrderOfTheirDeadlines) {
  const QueueRef queue = Queue::serial("later");
  std::vector<int> order;
  const std::vector<int> delays = {5, 1, 3, 1, 4, 1, 5, 9, 2, 6};
  for (size_t i = 0; i < delays.size(); ++i) {
    queue->postAfter(delays[i], [&, i] { order.push_back(static_cast<int>(i)); });
  }
  EXPECT_EQ(takeRuntimeSnapshot().armedTimers, delays.size());
  time->advance(0.999999999);
  ASSERT_TRUE(scope.settle());
  EXPECT_TRUE(order.empty());
  time->advance(0.000000001);
  ASSERT_TRUE(scope.settle());
  EXPECT_EQ(order, (std::vector<int>{1, 3, 5}));
  time->advance(100);
  ASSERT_TRUE(scope.settle());
  EXPECT_EQ(order, (std::vector<int>{1, 3, 5, 8, 2, 4, 0, 6, 9, 7}));
}

TEST_F(QueueTest, AGroupWaitsForItsTasksAndTheirClosures) {
  DispatchGroup group;
  EXPECT_TRUE(group.wait(0));
  bool held = false;
  struct Holder {
    bool* flag;
    ~Holder() { *flag = false; }
  };
  Semaphore gate(0);
  held = true;
  auto holder = std::make_shared<Holder>(Holder{&held});
  held = true;
  Queue::serial("group")->post(group, [&gate, holder = std::move(holder)] { gate.wait(); });
  EXPECT_FALSE(group.wait(0));
  EXPECT_FALSE(group.wait(-1));
  gate.signal();
  EXPECT_TRUE(group.wait(kPatience));
  EXPECT_FALSE(held);
  bool notified = false;
  group.notify(Queue::serial("empty group"), [&] { notified = true; });
  ASSERT_TRUE(scope.settle());
  EXPECT_TRUE(notified);
}

TEST_F(QueueTest, TimedWaitsEndWithVirtualTime) {
  DispatchGroup group;
  group.enter();
  Semaphore semaphore(0);
  Semaphore waiting(0), results(0);
  bool groupResult = true, semaphoreResult = true;
  Queue::blocking()->post([&] {
    waiting.signal();
    groupResult = group.wait(3);
    results.signal();
  });
  Queue::blocking()->post([&] {
    waiting.signal();
    semaphoreResult = semaphore.wait(3);
    results.signal();
  });
  for (int i = 0; i < 2; ++i) waiting.wait();
  // Each advance may come before the wait has looked at the clock; then the wait begins later and ends with
  // the next.
  while (!results.wait(0)) {
    time->advance(3);
    std::this_thread::yield();
  }
  while (!results.wait(0)) {
    time->advance(3);
    std::this_thread::yield();
  }
  EXPECT_FALSE(groupResult);
  EXPECT_FALSE(semaphoreResult);
  // Those who gave up took nothing with them.
  semaphore.signal();
  EXPECT_TRUE(semaphore.wait(0));
  group.leave();
  EXPECT_TRUE(group.wait(0));
}

TEST_F(QueueTest, SmallTasksAllocateNothing) {
  const QueueRef queue = Queue::serial("small");
  Semaphore done(0);
  size_t sum = 0;
  std::array<size_t, 5> payload = {1, 2, 3, 4, 5};
  const auto burst = [&] {
    for (int i = 0; i < 10'000; ++i) queue->post([&sum, payload] { sum += payload[4]; });
    queue->post([&] { done.signal(); });
  };
  // The worker is kept away, so that the backlog is the same each time: the first bursts set up what it
  // needs.
  size_t allocated = 0;
  for (int i = 0; i < 3; ++i) {
    Semaphore begun(0), gate(0);
    queue->post([&] {
      begun.signal();
      gate.wait();
    });
    begun.wait();
    const size_t before = allocations;
    burst();
    allocated = allocations - before;
    gate.signal();
    done.wait();
    ASSERT_TRUE(scope.settle());
  }
  EXPECT_EQ(allocated, 0u);
  EXPECT_EQ(sum, 3u * 10'000 * 5);
}

TEST_F(QueueTest, ASnapshotTellsWhatWaits) {
  Semaphore gate(0), begun(0);
  const QueueRef queue = Queue::serial("seen");
  queue->post([&] {
    begun.signal();
    gate.wait();
  });
  for (int i = 0; i < 3; ++i) queue->post([] {});
  begun.wait();
  queue->postAfter(60, [] {});
  Queue::main()->postAfter(60, [] {});
  const RuntimeSnapshot snapshot = takeRuntimeSnapshot();
  ASSERT_EQ(snapshot.queues.size(), 1u);
  EXPECT_EQ(snapshot.queues[0].label, "seen");
  EXPECT_EQ(snapshot.queues[0].waiting, 3u);
  EXPECT_TRUE(snapshot.queues[0].running);
  EXPECT_EQ(snapshot.armedTimers, 2u);
  EXPECT_EQ(snapshot.blockedWorkers, 0u);
  gate.signal();
  EXPECT_TRUE(scope.settle());
}

using QueueDeathTest = QueueTest;

TEST_F(QueueDeathTest, AnExceptionThatLeavesATaskEndsTheProcess) {
  ::testing::FLAGS_gtest_death_test_style = "threadsafe";
  EXPECT_DEATH(
      {
        Queue::serial("thrower")->post([] { throw std::runtime_error("escaped"); });
        Semaphore(0).wait();
      },
      "escaped");
  EXPECT_DEATH(DispatchGroup().leave(), "left more often than entered");
}

}  // namespace
}  // namespace nvxcore::testing
