// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
//
// What one sample costs, of a program with 4 threads 30 functions deep: processor time of the
// sampler, and how long a thread of the target stands still for it. The time of a row is processor
// time, which does not change with what else the machine does.
#include <benchmark/benchmark.h>

#include <string>

#include "sampling/BusyTarget.h"

namespace hoist::bench {
namespace {

constexpr int kThreads = 4;
constexpr int kDepth = 30;

// Runs the command, which takes as many samples as the function finds in its output.
template <typename CountSamples>
void measure(benchmark::State& state, std::vector<std::string> command,
             const CountSamples& countSamples) {
  const BusyTarget target(kThreads, kDepth);
  for (std::string& word : command) {
    if (word == "PID") word = target.id();
  }
  for ([[maybe_unused]] auto iteration : state) {
    const double from = now();
    const BusyTarget::Time before = target.time();
    const Finished finished = run(command);
    const BusyTarget::Time after = target.time();
    const double accounted = after.ran + after.waited - before.ran - before.waited;
    const double samples = finished.status == 0 ? countSamples(finished.output) : 0;
    if (samples == 0) {
      state.SkipWithError((command[0] + " does not run here").c_str());
      break;
    }
    state.SetIterationTime(finished.processorTime / samples);
    // In nanoseconds, of one thread for one sample.
    state.counters["still"] = ((now() - from) * kThreads - accounted) / kThreads / samples * 1e9;
    state.counters["elapsed"] = finished.elapsed / samples * 1e9;
  }
}

// "Sampled: for 2.000 s, 1234 times, ..."
double samplesOfReport(const std::string& report) {
  const std::size_t at = report.find(" s, ");
  return at == report.npos ? 0 : std::strtod(report.c_str() + at + 4, nullptr);
}

double onceIfDeep(const std::string& output) {
  return output.find("descend") == output.npos ? 0 : 1;
}

void Sampler(benchmark::State& state) {
  measure(state, {HOIST_BUILD_DIR "/bin/sample", "PID", "-duration", "3"}, samplesOfReport);
}
void SamplerOnce(benchmark::State& state) {
  measure(state, {HOIST_BUILD_DIR "/bin/sample", "PID", "-duration", "0.01", "-interval", "10000"},
          samplesOfReport);
}
void EuStack(benchmark::State& state) {
  measure(state, {"eu-stack", "-p", "PID"}, onceIfDeep);
}
void Gdb(benchmark::State& state) {
  measure(state, {"gdb", "-nx", "-batch", "-p", "PID", "-ex", "thread apply all bt"}, onceIfDeep);
}

BENCHMARK(Sampler)->UseManualTime()->Iterations(1)->Unit(benchmark::kMicrosecond);
BENCHMARK(SamplerOnce)->UseManualTime()->Iterations(1)->Unit(benchmark::kMicrosecond);
BENCHMARK(EuStack)->UseManualTime()->Iterations(1)->Unit(benchmark::kMicrosecond);
BENCHMARK(Gdb)->UseManualTime()->Iterations(1)->Unit(benchmark::kMicrosecond);

}  // namespace
}  // namespace hoist::bench
