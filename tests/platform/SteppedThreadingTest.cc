#include "tests/support/SteppedThreading.h"

#include <memory>
#include <set>
#include <string>
#include <vector>

#include "nvxcore/platform/MainLoop.h"
#include "nvxcore/platform/Mutex.h"
#include "nvxcore/platform/Platform.h"
#include "nvxcore/platform/Queue.h"
#include "nvxcore/platform/Semaphore.h"
#include "tests/support/NVXTest.h"
#include "tests/support/PlatformScope.h"

namespace nvxcore::testing {
namespace {

class SteppedThreadingTest : public NVXTest {};

struct Outcome {
  bool lostUpdate = false;
  uint64_t hash = 0;
  uint64_t choices = 0;
  bool operator==(const Outcome&) const = default;
};

/// Two queues raise a number that is read under one lock and written under the next.
Outcome raceOfTwoQueues(uint64_t seed) {
  const auto threading = std::make_shared<SteppedThreading>(seed);
  int value = 0;
  {
    PlatformScope scope(Platform{.threading = threading});
    Mutex mutex;
    const auto raise = [&] {
      int read;
      {
        Lock lock(mutex);
        read = value;
      }
      Lock lock(mutex);
      value = read + 1;
    };
    const QueueRef one = Queue::serial("one"), other = Queue::serial("other");
    for (int i = 0; i < 3; ++i) {
      one->post(raise);
      other->post(raise);
    }
    threading->runUntilIdle();
  }
  return {value != 6, threading->scheduleHash(), threading->choices()};
}

TEST_F(SteppedThreadingTest, SomeSeedsFindAnOrderingFaultAndFindItAgain) {
  constexpr uint64_t kSeeds = 1000;
  std::vector<Outcome> first;
  std::set<uint64_t> schedules;
  size_t found = 0;
  for (uint64_t seed = 0; seed < kSeeds; ++seed) {
    first.push_back(raceOfTwoQueues(seed));
    found += first.back().lostUpdate;
    schedules.insert(first.back().hash);
  }
  EXPECT_GT(found, 0u);
  EXPECT_LT(found, kSeeds);
  EXPECT_GT(schedules.size(), kSeeds / 2);
  for (uint64_t seed = kSeeds; seed-- > 0;) EXPECT_EQ(raceOfTwoQueues(seed), first[seed]) << "seed " << seed;
}

TEST_F(SteppedThreadingTest, AllPrimitivesReplayOnVirtualTime) {
  const auto program = [](uint64_t seed, std::string& log) {
    const auto threading = std::make_shared<SteppedThreading>(seed);
    PlatformScope scope(Platform{.threading = threading});
    const int64_t start = threading->monotonicNanos();
    const auto note = [&](const char* what) {
      log +=
          what + std::string("@") + std::to_string((threading->monotonicNanos() - start) / 1'000'000) + " ";
    };
    Semaphore never(0), ready(0);
    DispatchGroup group;
    for (int i = 0; i < 3; ++i) Queue::global()->post(group, [&] { ready.signal(); });
    Queue::blocking()->post(group, [&] {
      note(never.wait(3600) ? "?" : "gave up");
      for (int i = 0; i < 3; ++i) ready.wait();
      note("ready");
    });
    int ticks = 0;
    const auto timer = Timer::schedule(1, 0, true, [&](const std::shared_ptr<Timer>& timer) {
      if (++ticks == 3) timer->invalidate();
      note("tick");
    });
    Queue::serial("delayed")->postAfter(1.5, [&] { note("delayed"); });
    group.notify(Queue::main(), [&] { note("all"); });
    EXPECT_TRUE(group.wait(7200));
    threading->runUntilIdle();
    return threading->scheduleHash();
  };
  for (uint64_t seed = 0; seed < 20; ++seed) {
    std::string log, again;
    const uint64_t hash = program(seed, log);
    EXPECT_EQ(log, "tick@1000 delayed@1500 tick@2000 tick@3000 gave up@3600000 ready@3600000 all@3600000 ");
    EXPECT_EQ(program(seed, again), hash) << seed;
  }
}

TEST_F(SteppedThreadingTest, RunForLetsOnlyItsTimePass) {
  const auto threading = std::make_shared<SteppedThreading>(1);
  PlatformScope scope(Platform{.threading = threading});
  const int64_t start = threading->monotonicNanos();
  int ran = 0;
  for (int second = 1; second <= 5; ++second) Queue::global()->postAfter(second, [&] { ++ran; });
  threading->runFor(2.5);
  EXPECT_EQ(ran, 2);
  EXPECT_EQ(threading->monotonicNanos() - start, 2'500'000'000);
  threading->runUntilIdle();
  EXPECT_EQ(ran, 5);
}

using SteppedThreadingDeathTest = SteppedThreadingTest;

TEST_F(SteppedThreadingDeathTest, TellsWhoWaitsWhereAndWhoHoldsALockMeanwhile) {
  ::testing::FLAGS_gtest_death_test_style = "threadsafe";
  EXPECT_DEATH(
      {
        const auto threading = std::make_shared<SteppedThreading>(1);
        PlatformScope scope(Platform{.threading = threading});
        Semaphore never(0);
        Queue::serial("stuck")->post([&] { never.wait(); });
        never.wait();
      },
      "nothing can end that.*test: park.*nvx.worker: park, on the queue \"stuck\"");
  EXPECT_DEATH(
      {
        const auto threading = std::make_shared<SteppedThreading>(1);
        PlatformScope scope(Platform{.threading = threading});
        Semaphore never(0);
        Mutex mutex;
        Queue::serial("holder")->post([&] {
          Lock lock(mutex);
          never.wait();
        });
        threading->runUntilIdle();
      },
      "nvx.worker waits while it holds a lock");
}

}  // namespace
}  // namespace nvxcore::testing
