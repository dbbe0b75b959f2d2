// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
//
// How long it takes to read to the end what a child writes. The writer is the same in all rows.
#include <benchmark/benchmark.h>

#include <chrono>
#include <string>

#include "platform/ChildTask.h"
#include "process/TextPipeReader.h"
#include "support/TemporaryFolder.h"

namespace hoist::bench {
namespace {

constexpr std::size_t kBytes = 256 * 1024 * 1024;
constexpr std::string_view kLine =
    "a line of text such as tools write, of sixty-four bytes in all\n";

// The text, in a file that stays in memory.
const std::string& textFile() {
  static const TemporaryFolder folder;
  static const std::string path = [] {
    std::string text;
    text.reserve(kBytes);
    while (text.size() + kLine.size() <= kBytes) text += kLine;
    return folder.write("text", text);
  }();
  return path;
}

// The writer writes to the descriptor until the text's end.
Ref<ChildTask> startWriter(int descriptor) {
  return ChildTask::launch(
      {.launchPath = "/bin/cat", .arguments = {textFile()}, .standardOutput = descriptor});
}

template <class Read>
void measure(benchmark::State& state, const Read& read) {
  textFile();
  for ([[maybe_unused]] auto iteration : state) {
    const auto start = std::chrono::steady_clock::now();
    read();
    const std::chrono::duration<double> time = std::chrono::steady_clock::now() - start;
    state.SetIterationTime(time.count());
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * kBytes));
}

void Cat(benchmark::State& state) {
  measure(state, [] {
    PipeEnds pipe = makePipe();
    auto writer = startWriter(pipe.writing.get());
    auto reader = ChildTask::launch({.launchPath = "/bin/sh",
                                     .arguments = {"-c", "exec cat > /dev/null"},
                                     .standardInput = pipe.reading.get()});
    pipe = {};
    reader->waitUntilExit();
    writer->waitUntilExit();
  });
}

void read(std::size_t limit) {
  auto reader = make<TextPipeReader>();
  reader->setLimit(limit);
  auto writer = startWriter(reader->pipe().writing.get());
  reader->startReading();
  auto lines = reader->lines();
  benchmark::DoNotOptimize(lines);
  writer->waitUntilExit();
}

void ReaderWithLimit(benchmark::State& state) {
  measure(state, [] { read(64 * 1024); });
}

void Reader(benchmark::State& state) {
  measure(state, [] { read(0); });
}

BENCHMARK(Cat)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(ReaderWithLimit)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(Reader)->UseManualTime()->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace hoist::bench
