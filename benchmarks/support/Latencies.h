// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <benchmark/benchmark.h>

#include <chrono>
#include <vector>

namespace hoist::bench {

// The durations of single operations of one run, for what an average hides. Used by one thread.
class Latencies {
 public:
  void add(std::chrono::nanoseconds duration) { durations_.push_back(duration); }

  // Measures one call of the operation.
  template <typename Operation>
  void measure(const Operation& operation) {
    const auto start = std::chrono::steady_clock::now();
    operation();
    add(std::chrono::steady_clock::now() - start);
  }

  // The last one, for SetIterationTime().
  double lastSeconds() const { return std::chrono::duration<double>(durations_.back()).count(); }

  // Gives the run the counters "p50" and "p99", in nanoseconds. The report's tables are made of
  // them.
  void report(benchmark::State& state);

 private:
  std::vector<std::chrono::nanoseconds> durations_;
};

}  // namespace hoist::bench
