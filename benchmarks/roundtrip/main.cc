// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// One round trip of an empty call to a process that waits for it. This program is both ends: it
// starts itself as "bench_roundtrip --serve NAME PATH" for the other one.

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstring>
#include <exception>

#include "roundtrip/Contender.h"
#include "support/Latencies.h"
#include "support/PeerProcess.h"
#include "support/TemporaryFolder.h"

namespace hoist::bench {

const std::vector<Contender>& contenders() {
  static const auto& all = *new std::vector<Contender>{
      rawSocket(),    rawSocketWithHop(),   hoistConnection(), sdBus(),
      sdBusWithHop(), sdBusThroughDaemon(), gdbus(),           grpc(),
      capnProto(),
  };
  return all;
}

namespace {

// A contender's two ends, from the first of its runs to the end of the program: the runs of all
// contenders are interleaved.
class Pair {
 public:
  explicit Pair(const Contender& contender)
      : path_(folder_ / "socket"),
        server_({PeerProcess::thisProgram(), "--serve", contender.name, path_}),
        caller_(contender.connect(path_)) {
    // What the first calls cost (authentication, caches) is another benchmark.
    for (int i = 0; i < 200; ++i) caller_->call();
  }
  Caller& caller() { return *caller_; }

 private:
  TemporaryFolder folder_;
  std::string path_;
  PeerProcess server_;
  std::unique_ptr<Caller> caller_;
};

void roundTrip(benchmark::State& state, const Contender& contender, std::unique_ptr<Pair>& pair) {
  if (!pair) pair = std::make_unique<Pair>(contender);
  Latencies latencies;
  for (auto _ : state) latencies.measure([&] { pair->caller().call(); });
  latencies.report(state);
}

int serve(const char* name, const char* path) {
  for (const Contender& contender : contenders()) {
    if (std::strcmp(contender.name, name) == 0) contender.serve(path);
  }
  return 0;
}

void measure() {
  std::vector<std::unique_ptr<Pair>> pairs(contenders().size());
  for (std::size_t i = 0; i < pairs.size(); ++i) {
    benchmark::RegisterBenchmark(contenders()[i].name, [i, &pairs](benchmark::State& state) {
      roundTrip(state, contenders()[i], pairs[i]);
    })->UseRealTime();
  }
  benchmark::RunSpecifiedBenchmarks();
}

}  // namespace
}  // namespace hoist::bench

int main(int argc, char** argv) {
  try {
    if (argc == 4 && std::strcmp(argv[1], "--serve") == 0) {
      return hoist::bench::serve(argv[2], argv[3]);
    }
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
    hoist::bench::measure();
    return 0;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "bench_roundtrip: %s\n", error.what());
    return 1;
  }
}
