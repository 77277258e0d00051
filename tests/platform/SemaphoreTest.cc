#include "nvxcore/platform/Semaphore.h"

#include <memory>
#include <random>
#include <vector>

#include "nvxcore/platform/Queue.h"
#include "nvxcore/platform/Threading.h"
#include "tests/support/NVXTest.h"
#include "tests/support/PlatformScope.h"
#include "tests/support/Proof.h"
#include "tests/support/SteppedThreading.h"

namespace nvxcore::testing {
namespace {

class SemaphoreTest : public NVXTest {};

/// Threads that signal and that wait with time-outs, at random: a signal is worth one wait, whoever gave up
/// meanwhile, and nobody sleeps beside a signal that nobody took.
TEST_F(SemaphoreTest, EachSignalIsWorthOneWait) {
  constexpr int kThreads = 4, kSteps = 6;
  size_t timedOut = 0, slept = 0;
  const size_t seeds = proofCount(2'000, 100'000);
  for (uint64_t seed = 1; seed <= seeds && !HasFailure(); ++seed) {
    const auto threading = std::make_shared<SteppedThreading>(seed);
    PlatformScope scope(Platform{.threading = threading});
    Semaphore semaphore(seed % 2 ? 1 : 0);
    int64_t worth = seed % 2 ? 1 : 0;  // One thread runs at a time.
    std::vector<std::unique_ptr<ThreadHandle>> threads;
    for (uint64_t thread = 0; thread < kThreads; ++thread) {
      threads.push_back(threading->startThread("steps", [&, thread] {
        std::minstd_rand random(static_cast<unsigned>(seed * kThreads + thread + 1));
        for (int i = 0; i < kSteps; ++i) {
          if (random() % 2) {
            ++worth;
            semaphore.signal();
            continue;
          }
          const TimeInterval timeout = static_cast<double>(random() % 3) * 0.001;
          const int64_t before = threading->monotonicNanos();
          const bool taken = semaphore.wait(timeout);
          worth -= taken;
          timedOut += !taken;
          slept += taken && threading->monotonicNanos() > before;
        }
      }));
    }
    for (const auto& thread : threads) thread->join();
    int64_t left = 0;
    while (semaphore.wait(0)) ++left;
    EXPECT_EQ(left, worth) << "seed " << seed;
    // A wait without a limit has to find it too.
    semaphore.signal();
    semaphore.wait();
    EXPECT_FALSE(semaphore.wait(0)) << "seed " << seed;
  }
  EXPECT_GT(timedOut, seeds / 4);
  EXPECT_GT(slept, 0u);
}

TEST_F(SemaphoreTest, WaitersAreServedInOrder) {
  const auto threading = std::make_shared<SteppedThreading>(1);
  PlatformScope scope(Platform{.threading = threading});
  Semaphore semaphore(0);
  std::vector<int> served;
  std::vector<std::unique_ptr<ThreadHandle>> threads;
  for (int i = 0; i < 4; ++i) {
    threads.push_back(threading->startThread("waiter", [&, i] {
      semaphore.wait();
      served.push_back(i);
    }));
    threading->runUntilIdle();
  }
  for (int i = 0; i < 4; ++i) {
    semaphore.signal();
    threading->runUntilIdle();
  }
  for (const auto& thread : threads) thread->join();
  EXPECT_EQ(served, (std::vector<int>{0, 1, 2, 3}));
}

}  // namespace
}  // namespace nvxcore::testing
