#pragma once

#include <benchmark/benchmark.h>

#include <string>

namespace rows {

/// A row of ours, with the share of its peer's time that it may take at most, where there is a peer.
template <class Run>
benchmark::internal::Benchmark* ours(const std::string& name, double bar, Run run) {
  return benchmark::RegisterBenchmark((name + "/ours").c_str(), [run, bar](benchmark::State& state) {
    run(state);
    if (bar > 0) state.counters["bar"] = bar;
  });
}

template <class Run>
benchmark::internal::Benchmark* peer(const std::string& name, Run run) {
  return benchmark::RegisterBenchmark((name + "/peer").c_str(),
                                      [run](benchmark::State& state) { run(state); });
}

/// The rows beside no peer.
void addOthers();
/// Messages that another thread frees.
void addFreedElsewhere();

}  // namespace rows
