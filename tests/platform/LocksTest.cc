#include <array>
#include <memory>
#include <vector>

#include "nvxcore/platform/Mutex.h"
#include "nvxcore/platform/Threading.h"
#include "nvxcore/platform/internal/BlockPool.h"
#include "tests/support/NVXTest.h"
#include "tests/support/PlatformScope.h"

namespace nvxcore::testing {
namespace {

class LocksTest : public NVXTest {
 protected:
  template <class Body>
  void onThreads(int count, Body body) {
    std::vector<std::unique_ptr<ThreadHandle>> threads;
    for (int i = 0; i < count; ++i)
      threads.push_back(Platform::current().threading->startThread("locks", [=] { body(i); }));
    for (const auto& thread : threads) thread->join();
  }

  PlatformScope scope;
};

/// More threads than processors, so that holders are put to sleep with the lock in their hands: each of those
/// who queued up meanwhile has to be woken, and what a holder wrote is what the next one reads.
TEST_F(LocksTest, NobodyIsLeftBehindAtALock) {
  constexpr int kThreads = 8, kTurns = 20'000;
  Mutex mutex;
  int64_t turns = 0;
  std::array<int64_t, 64> cells{};
  onThreads(kThreads, [&](int) {
    for (int i = 0; i < kTurns; ++i) {
      Lock lock(mutex);
      ++turns;
      for (int64_t& cell : cells) ++cell;
    }
  });
  EXPECT_EQ(turns, kThreads * kTurns);
  for (int64_t cell : cells) EXPECT_EQ(cell, turns);
}

/// Blocks that are made on one thread and freed on another stay whole, whatever their size.
TEST_F(LocksTest, BlocksGoFromThreadToThread) {
  constexpr int kThreads = 4, kBlocks = 4'000;
  struct Block {
    uint8_t* bytes;
    size_t size;
  };
  Mutex mutex;
  std::vector<Block> given;
  bool isWhole = true;
  onThreads(kThreads, [&](int thread) {
    for (int i = 0; i < kBlocks; ++i) {
      const size_t size = 1 + static_cast<size_t>(i * 37 + thread) % 9000;
      auto* bytes = static_cast<uint8_t*>(BlockPool::allocate(size));
      bytes[0] = bytes[size - 1] = static_cast<uint8_t>(size);
      Block taken{};
      {
        Lock lock(mutex);
        given.push_back({bytes, size});
        if (given.size() < 100) continue;
        std::swap(given[static_cast<size_t>(i) % given.size()], given.back());
        taken = given.back();
        given.pop_back();
        const auto mark = static_cast<uint8_t>(taken.size);
        isWhole = isWhole && taken.bytes[0] == mark && taken.bytes[taken.size - 1] == mark;
      }
      BlockPool::free(taken.bytes, taken.size);
    }
  });
  EXPECT_TRUE(isWhole);
  for (const Block& block : given) BlockPool::free(block.bytes, block.size);
}

}  // namespace
}  // namespace nvxcore::testing
