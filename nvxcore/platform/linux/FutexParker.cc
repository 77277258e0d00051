#include "nvxcore/platform/linux/FutexParker.h"

#include <errno.h>
#include <linux/futex.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

namespace nvxcore {

namespace {

enum : uint32_t { kEmpty, kToken, kSleeping };

static_assert(sizeof(std::atomic<uint32_t>) == sizeof(uint32_t) &&
              std::atomic<uint32_t>::is_always_lock_free);

// The wait that takes its deadline as a moment of the monotonic clock: one early return doesn't lengthen the
// next wait.
long futexWait(std::atomic<uint32_t>& word, uint32_t expected, const timespec* deadline) {
  return syscall(SYS_futex, &word, FUTEX_WAIT_BITSET_PRIVATE, expected, deadline, nullptr,
                 FUTEX_BITSET_MATCH_ANY);
}

}  // namespace

/// Takes the token if it is there, else announces a sleeper.
bool FutexParker::takeToken() {
  for (;;) {
    uint32_t word = _word.load(std::memory_order_relaxed);
    if (word == kSleeping) return false;
    const uint32_t next = word == kToken ? kEmpty : kSleeping;
    if (_word.compare_exchange_weak(word, next, std::memory_order_acquire)) return word == kToken;
  }
}

void FutexParker::park() {
  while (!takeToken()) futexWait(_word, kSleeping, nullptr);
}

bool FutexParker::parkUntil(int64_t deadlineNanos) {
  constexpr int64_t kSecond = 1'000'000'000;
  const timespec deadline{deadlineNanos / kSecond, deadlineNanos % kSecond};
  while (!takeToken()) {
    const bool past =
        deadlineNanos < 0 || (futexWait(_word, kSleeping, &deadline) != 0 && errno == ETIMEDOUT);
    if (past) return _word.exchange(kEmpty, std::memory_order_acquire) == kToken;
  }
  return true;
}

// Once the token is in, the parker may be gone: only its address is used.
void FutexParker::unpark() {
  if (_word.exchange(kToken, std::memory_order_release) == kSleeping) {
    syscall(SYS_futex, &_word, FUTEX_WAKE_PRIVATE, 1, nullptr, nullptr, 0);
  }
}

}  // namespace nvxcore
