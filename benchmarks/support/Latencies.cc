// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "support/Latencies.h"

#include <algorithm>

namespace hoist::bench {

void Latencies::report(benchmark::State& state) {
  if (durations_.empty()) return;
  const auto quantile = [this](double part) {
    auto at = durations_.begin() +
              static_cast<std::ptrdiff_t>(part * static_cast<double>(durations_.size() - 1));
    std::nth_element(durations_.begin(), at, durations_.end());
    return static_cast<double>(at->count());
  };
  state.counters["p50"] = quantile(0.50);
  state.counters["p99"] = quantile(0.99);
}

}  // namespace hoist::bench
