// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// The mounted volumes of this machine, listed with what is known about each.
#include <benchmark/benchmark.h>

#include "filesystem/PXVolumeInfo.h"
#include "support/FileTree.h"

namespace {

using namespace hoist;

void Findmnt(benchmark::State& state) {
  for (auto _ : state) {
    bench::runQuietly("findmnt --list --bytes --output TARGET,FSTYPE,SOURCE,SIZE,AVAIL,LABEL,UUID");
  }
}

void Hoist(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(PXVolumeInfo::allVolumes());
}

BENCHMARK(Findmnt)->UseRealTime();
BENCHMARK(Hoist)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
