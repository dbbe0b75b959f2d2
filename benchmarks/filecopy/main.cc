// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// Recursive copies of a tree of small files, warm cache. What a round has made is removed again
// outside the time.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <chrono>

#include "filesystem/PXPath.h"
#include "support/FileTree.h"

namespace {

using namespace hoist;

const bench::FileTree& files() {
  static const bench::FileTree tree(200, 20'000, 3'000);
  return tree;
}

template <class Copy>
void measure(benchmark::State& state, Copy&& copy) {
  auto source = PXPath::initWithCPath(files().path());
  auto target = PXPath::initWithCPath(files().beside("copy"));
  for (auto _ : state) {
    // What the rounds before have left to the disk is none of this one's.
    ::sync();
    auto start = std::chrono::steady_clock::now();
    copy(*source, *target);
    auto time = std::chrono::steady_clock::now() - start;
    state.SetIterationTime(std::chrono::duration<double>(time).count() / files().items());
    if (!target->tryToDeleteFile()) state.SkipWithError("nothing was copied");
  }
}

void Cp(benchmark::State& state) {
  measure(state, [](const PXPath& source, const PXPath& target) {
    bench::runQuietly("cp -a '" + source.path() + "' '" + target.path() + "'");
  });
}

void Hoist(benchmark::State& state) {
  measure(state,
          [](const PXPath& source, const PXPath& target) { source.copyTo(target.cPath(), false); });
}

BENCHMARK(Cp)->UseManualTime()->Iterations(1);
BENCHMARK(Hoist)->UseManualTime()->Iterations(1);

}  // namespace

BENCHMARK_MAIN();
