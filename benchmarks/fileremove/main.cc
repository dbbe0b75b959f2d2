// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// Recursive removal of a tree of small files, made anew for each round outside the time.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <chrono>

#include "filesystem/PXPath.h"
#include "support/FileTree.h"

namespace {

using namespace hoist;

template <class Remove>
void measure(benchmark::State& state, Remove&& remove) {
  for (auto _ : state) {
    bench::FileTree tree(200, 20'000, 3'000);
    auto path = PXPath::initWithCPath(tree.path());
    // What making the tree has left to the disk is no part of it.
    ::sync();
    auto start = std::chrono::steady_clock::now();
    remove(*path);
    auto time = std::chrono::steady_clock::now() - start;
    state.SetIterationTime(std::chrono::duration<double>(time).count() / tree.items());
    if (path->exists()) state.SkipWithError("nothing was removed");
  }
}

void Rm(benchmark::State& state) {
  measure(state, [](const PXPath& path) { bench::runQuietly("rm -rf '" + path.path() + "'"); });
}

void Hoist(benchmark::State& state) {
  measure(state, [](const PXPath& path) { path.deleteFile(); });
}

BENCHMARK(Rm)->UseManualTime()->Iterations(1);
BENCHMARK(Hoist)->UseManualTime()->Iterations(1);

}  // namespace

BENCHMARK_MAIN();
