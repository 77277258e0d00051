// What a serial queue costs, beside the simplest things that could stand in its place. Run it with
//   --benchmark_repetitions=9 --benchmark_enable_random_interleaving=true
//   --benchmark_report_aggregates_only=true
// and compare the medians of the counter median_ns. The rows:
//
// post_and_run_10000/ours and its peer post 10,000 tasks that each add to a number, and wait until the
// last one has run. The peer is a thread that runs this, and whose `post` locks, appends and notifies:
//
//   std::unique_lock lock(mutex);
//   for (;;) {
//     condition.wait(lock, [&] { return stopped || !tasks.empty(); });
//     if (tasks.empty()) return;
//     std::function<void()> task = std::move(tasks.front());
//     tasks.pop_front();
//     lock.unlock();
//     task();
//     lock.lock();
//   }
//
// wake and its peer measure from the call until another thread, which slept, has run a task. The
// peer's thread runs this, and is woken by storing 1 and a futex wake:
//
//   while (word.load() == 0) futex(&word, FUTEX_WAIT, 0);
//   word.store(0);
//   ran.store(true);

#include <benchmark/benchmark.h>
#include <linux/futex.h>
#include <sched.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <new>
#include <thread>
#include <vector>

#include "nvxcore/platform/Queue.h"

namespace {
std::atomic<size_t> allocations{0};
}  // namespace

// Not inlined: the compiler would take the pair below for a mismatch.
[[gnu::noinline]] void* operator new(size_t size) {
  allocations.fetch_add(1, std::memory_order_relaxed);
  if (void* memory = std::malloc(size)) return memory;
  throw std::bad_alloc();
}
[[gnu::noinline]] void operator delete(void* memory) noexcept { std::free(memory); }
[[gnu::noinline]] void operator delete(void* memory, size_t) noexcept { std::free(memory); }

namespace {

using nvxcore::Queue;
using nvxcore::QueueRef;

constexpr int kTasks = 10'000;

/// Keeps the threads that are started meanwhile on the second processor, and the calling one on the first
/// afterwards: where the system would put them differs from run to run, and with it what waking costs.
class StartsOnSecondProcessor {
 public:
  StartsOnSecondProcessor() { moveTo(1); }
  ~StartsOnSecondProcessor() { moveTo(0); }

 private:
  static void moveTo(int processor) {
    cpu_set_t set;
    CPU_ZERO(&set);
    CPU_SET(processor, &set);
    sched_setaffinity(0, sizeof set, &set);  // Fails, and changes nothing, where there is only one.
  }
};

QueueRef queueOnSecondProcessor() {
  StartsOnSecondProcessor scope;
  QueueRef queue = Queue::serial("benchmark");
  std::atomic<bool> started{false};
  queue->post([&] {
    started = true;
    started.notify_one();
  });
  started.wait(false);
  return queue;
}

template <class T>
std::unique_ptr<T> startedOnSecondProcessor() {
  StartsOnSecondProcessor scope;
  return std::make_unique<T>();
}

class PeerQueue {
 public:
  PeerQueue() : _thread([this] { run(); }) {}
  ~PeerQueue() {
    {
      std::lock_guard lock(_mutex);
      _stopped = true;
    }
    _condition.notify_one();
    _thread.join();
  }

  void post(std::function<void()> task) {
    {
      std::lock_guard lock(_mutex);
      _tasks.push_back(std::move(task));
    }
    _condition.notify_one();
  }

 private:
  void run() {
    std::unique_lock lock(_mutex);
    for (;;) {
      _condition.wait(lock, [&] { return _stopped || !_tasks.empty(); });
      if (_tasks.empty()) return;
      std::function<void()> task = std::move(_tasks.front());
      _tasks.pop_front();
      lock.unlock();
      task();
      lock.lock();
    }
  }

  std::mutex _mutex;
  std::condition_variable _condition;
  std::deque<std::function<void()>> _tasks;
  bool _stopped = false;
  std::thread _thread;
};

long futex(std::atomic<uint32_t>& word, int operation, uint32_t value) {
  return syscall(SYS_futex, &word, operation, value, nullptr, nullptr, 0);
}

class FutexThread {
 public:
  FutexThread() : _thread([this] { run(); }) {}
  ~FutexThread() {
    _stopped = true;
    wake();
    _thread.join();
  }

  void wake() {
    _word.store(1);
    futex(_word, FUTEX_WAKE_PRIVATE, 1);
  }
  alignas(64) std::atomic<bool> ran{false};

 private:
  void run() {
    while (!_stopped) {
      while (_word.load() == 0) futex(_word, FUTEX_WAIT_PRIVATE, 0);
      _word.store(0);
      ran.store(true);
    }
  }

  alignas(64) std::atomic<uint32_t> _word{0};
  std::atomic<bool> _stopped{false};
  std::thread _thread;
};

/// Reports the median of all iterations. The mean, which is reported as time, has in it whatever else ran on
/// the machine.
void reportMedian(benchmark::State& state, std::vector<double>& nanos) {
  std::nth_element(nanos.begin(), nanos.begin() + nanos.size() / 2, nanos.end());
  state.counters["median_ns"] = nanos[nanos.size() / 2];
}

using Clock = std::chrono::steady_clock;

double nanosSince(Clock::time_point start) {
  return std::chrono::duration<double, std::nano>(Clock::now() - start).count();
}

template <class Post>
void postAndRun(benchmark::State& state, Post post) {
  uint64_t sum = 0;
  std::atomic<uint32_t> done{0};
  auto burst = [&] {
    sum = 0;
    done = 0;
    for (int i = 1; i < kTasks; ++i) post([&sum] { ++sum; });
    post([&] {
      ++sum;
      done = 1;
      done.notify_one();
    });
    done.wait(0);
  };
  burst();  // What only a first time allocates.
  if (sum != kTasks) state.SkipWithError("lost tasks");
  std::vector<double> nanos;
  nanos.reserve(static_cast<size_t>(state.max_iterations));
  const size_t before = allocations;
  for (auto _ : state) {
    const auto start = Clock::now();
    burst();
    nanos.push_back(nanosSince(start));
  }
  const auto tasks = static_cast<double>(state.iterations()) * kTasks;
  state.SetItemsProcessed(static_cast<int64_t>(tasks));
  reportMedian(state, nanos);
  state.counters["allocations/task"] = static_cast<double>(allocations - before) / tasks;
}

void SerialQueuePostAndRun(benchmark::State& state) {
  const QueueRef queue = queueOnSecondProcessor();
  postAndRun(state, [&](auto task) { queue->post(std::move(task)); });
}
BENCHMARK(SerialQueuePostAndRun)
    ->Name("post_and_run_10000/ours")
    ->UseRealTime()
    ->Unit(benchmark::kMicrosecond);

void PeerPostAndRun(benchmark::State& state) {
  const auto queue = startedOnSecondProcessor<PeerQueue>();
  postAndRun(state, [&](auto task) { queue->post(std::move(task)); });
}
BENCHMARK(PeerPostAndRun)->Name("post_and_run_10000/peer")->UseRealTime()->Unit(benchmark::kMicrosecond);

// Long enough for the other thread to have fallen asleep again.
void letFallAsleep() {
  const auto until = Clock::now() + std::chrono::microseconds(30);
  while (Clock::now() < until) {
  }
}

template <class Wake>
void wakeAndRun(benchmark::State& state, std::atomic<bool>& ran, Wake wake) {
  std::vector<double> nanos;
  nanos.reserve(static_cast<size_t>(state.max_iterations));
  for (auto _ : state) {
    letFallAsleep();
    ran = false;
    const auto start = Clock::now();
    wake();
    while (!ran.load(std::memory_order_acquire)) {
    }
    nanos.push_back(nanosSince(start));
    state.SetIterationTime(nanos.back() / 1e9);
  }
  reportMedian(state, nanos);
}

void SerialQueueWake(benchmark::State& state) {
  const QueueRef queue = queueOnSecondProcessor();
  std::atomic<bool> ran{false};
  wakeAndRun(state, ran, [&] { queue->post([&ran] { ran.store(true, std::memory_order_release); }); });
}
BENCHMARK(SerialQueueWake)->Name("wake/ours")->UseManualTime()->Iterations(5'000);

void PeerWake(benchmark::State& state) {
  const auto thread = startedOnSecondProcessor<FutexThread>();
  wakeAndRun(state, thread->ran, [&] { thread->wake(); });
}
BENCHMARK(PeerWake)->Name("wake/peer")->UseManualTime()->Iterations(5'000);

}  // namespace

BENCHMARK_MAIN();
