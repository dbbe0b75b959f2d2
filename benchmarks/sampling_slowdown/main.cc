// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
//
// How much slower a computing program is while it is sampled a thousand times a second. The time of
// a row is what one turn of the computation takes a thread, standing still included but without its
// waits for a processor, which depend on what else the machine does. The processor time that the
// sampler takes stands beside it, as a share of the machine.
#include <benchmark/benchmark.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <future>
#include <thread>

#include "sampling/BusyTarget.h"

namespace hoist::bench {
namespace {

constexpr int kThreads = 2;
constexpr int kDepth = 30;
constexpr auto kBeforeIt = std::chrono::milliseconds(300);
constexpr auto kWindow = std::chrono::milliseconds(1500);
// Longer than both together.
constexpr const char* kSeconds = "2";

void measure(benchmark::State& state, std::vector<std::string> command) {
  const BusyTarget target(kThreads, kDepth);
  for (std::string& word : command) {
    if (word == "PID") word = target.id();
  }
  for ([[maybe_unused]] auto iteration : state) {
    std::future<Finished> sampling;
    if (!command.empty()) {
      sampling = std::async(std::launch::async, [&] { return run(command); });
    }
    std::this_thread::sleep_for(kBeforeIt);
    const double from = now();
    const double turns = target.turns();
    const BusyTarget::Time before = target.time();
    std::this_thread::sleep_for(kWindow);
    const BusyTarget::Time after = target.time();
    const double done = target.turns() - turns;
    const double elapsed = now() - from;
    state.SetIterationTime((elapsed * kThreads - (after.waited - before.waited)) / done);
    if (!sampling.valid()) continue;
    const Finished finished = sampling.get();
    if (finished.status != 0) state.SkipWithError((command[0] + " does not run here").c_str());
    state.counters["share"] =
        finished.processorTime / finished.elapsed / std::thread::hardware_concurrency() * 100;
  }
}

void Undisturbed(benchmark::State& state) {
  measure(state, {});
}
void Sampler(benchmark::State& state) {
  measure(state, {HOIST_BUILD_DIR "/bin/sample", "PID", "-duration", kSeconds});
}
void PerfRecord(benchmark::State& state) {
  measure(state, {"perf", "record", "-q", "-F", "1000", "-g", "-p", "PID", "-o", "/dev/null", "--",
                  "sleep", kSeconds});
}

BENCHMARK(Undisturbed)->UseManualTime()->Iterations(1);
BENCHMARK(Sampler)->UseManualTime()->Iterations(1);
BENCHMARK(PerfRecord)->UseManualTime()->Iterations(1);

}  // namespace
}  // namespace hoist::bench
