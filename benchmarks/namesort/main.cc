// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// One folder of 100,000 names into the file browser's order. Times are for one name.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <string>
#include <vector>

#include "filesystem/PXDirectory.h"
#include "platform/Collation.h"
#include "support/FileTree.h"

namespace {

using namespace hoist;

constexpr int kNames = 100'000;

const bench::FileTree& files() {
  static const bench::FileTree tree(0, kNames, 0);
  return tree;
}

template <class Work>
void measure(benchmark::State& state, Work&& work) {
  auto start = std::chrono::steady_clock::now();
  work();
  auto time = std::chrono::steady_clock::now() - start;
  state.SetIterationTime(std::chrono::duration<double>(time).count() / kNames);
}

void ReadyKeys(benchmark::State& state) {
  std::vector<std::string> keys;
  auto directory = PXDirectory::directoryWithPath(files().path());
  for (auto& child : *directory) {
    keys.push_back(finderLikeKey(child->cName()));
  }
  for (auto _ : state) {
    auto copy = keys;
    measure(state, [&] { std::sort(copy.begin(), copy.end()); });
  }
}

void Hoist(benchmark::State& state) {
  // Kept, because letting go of so many goes on in the background for a while.
  static auto& kept = *new std::vector<Ref<PXDirectory>>;
  for (auto _ : state) {
    auto& directory = kept.emplace_back(PXDirectory::directoryWithPath(files().path()));
    directory->lazyDirectoryRead();
    measure(state, [&] { directory->sort(); });
  }
}

void LsV(benchmark::State& state) {
  for (auto _ : state) {
    measure(state, [] { bench::runQuietly("ls -v '" + files().path() + "'"); });
  }
}

void LsUnsorted(benchmark::State& state) {
  for (auto _ : state) {
    measure(state, [] { bench::runQuietly("ls -U '" + files().path() + "'"); });
  }
}

BENCHMARK(ReadyKeys)->UseManualTime()->Iterations(1);
BENCHMARK(Hoist)->UseManualTime()->Iterations(1);
BENCHMARK(LsV)->UseManualTime()->Iterations(1);
BENCHMARK(LsUnsorted)->UseManualTime()->Iterations(1);

}  // namespace

BENCHMARK_MAIN();
