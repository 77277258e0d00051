// Events that are parsed on one thread and freed on another, beside the same freed at home: the time of both
// threads together.

#include <chrono>
#include <semaphore>
#include <thread>
#include <vector>

#include "benchmarks/message/Rows.h"
#include "benchmarks/message/Shapes.h"

namespace {

using namespace nvxcore;
using Clock = std::chrono::steady_clock;
using Batch = std::vector<Ref<NVXx_BMEvent>>;

constexpr size_t kBatch = 256;

double seconds(Clock::duration duration) { return std::chrono::duration<double>(duration).count(); }

void letGo(Batch& batch, double& spent) {
  const Clock::time_point start = Clock::now();
  batch.clear();
  spent = seconds(Clock::now() - start);
}

/// A thread that frees what it is handed.
class Freer {
 public:
  void letGo(Batch& batch, double& spent) {
    _batch = &batch;
    _spent = &spent;
    _handed.release();
    _done.acquire();
  }
  ~Freer() {
    _batch = nullptr;
    _handed.release();
    _thread.join();
  }

 private:
  void run() {
    for (;;) {
      _handed.acquire();
      if (!_batch) return;
      ::letGo(*_batch, *_spent);
      _done.release();
    }
  }
  Batch* _batch = nullptr;
  double* _spent = nullptr;
  std::binary_semaphore _handed{0};
  std::binary_semaphore _done{0};
  std::thread _thread{&Freer::run, this};
};

template <class LetGo>
void measure(benchmark::State& state, LetGo letGoOf) {
  const Data& bytes = shapes::events(false).bytes[0];
  Batch batch;
  batch.reserve(kBatch);
  for (auto _ : state) {
    const Clock::time_point start = Clock::now();
    for (size_t i = 0; i < kBatch; ++i) batch.push_back(NVXx_BMEvent::parseFromData(bytes));
    const double parsed = seconds(Clock::now() - start);
    double freed = 0;
    letGoOf(batch, freed);
    state.SetIterationTime(parsed + freed);
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * kBatch));
}

}  // namespace

void rows::addFreedElsewhere() {
  ours("event/freed elsewhere", 2, [](benchmark::State& state) {
    Freer freer;
    measure(state, [&](Batch& batch, double& spent) { freer.letGo(batch, spent); });
  })->UseManualTime();
  // The peer is ourselves, at home.
  peer("event/freed elsewhere", [](benchmark::State& state) {
    measure(state, [](Batch& batch, double& spent) { letGo(batch, spent); });
  })->UseManualTime();
}
