// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// What a log line costs its caller. Everything goes to /dev/null through a descriptor of its own,
// so that the cost of the destination is the one system call that each of them makes for a line.
// The journal is left out: a line costs the same socket message whoever sends it.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/spdlog.h>
#include <unistd.h>

#include <cstdint>
#include <string_view>

#include "logging/LogFormat.h"
#include "logging/Logger.h"
#include "logging/NSLogLogger.h"

namespace {

using hoist::Console;
using hoist::Logger;
namespace classification = hoist::classification;

constexpr std::string_view kText = "launched helper for command capture, process 4711";
constexpr std::string_view kReadyLine =
    "2024-03-05 14:07:09.123 +0100 hoist[412] (Warning) launched helper for command capture, "
    "process 4711\n";

int nullDevice() {
  static const int descriptor = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
  return descriptor;
}

void useConsoleLogger() {
  static auto& console = *new Console(Console::Destination::Descriptor, nullDevice());
  static const bool installed =
      (Logger::setDefaultLogger(hoist::make<hoist::NSLogLogger>(console)), true);
  benchmark::DoNotOptimize(installed);
}

spdlog::logger& spdlogLogger() {
  static auto& logger = *new std::shared_ptr<spdlog::logger>([] {
    auto made = spdlog::basic_logger_mt("bench", "/dev/null");
    made->set_pattern("%Y-%m-%d %H:%M:%S.%e %z %n[%P] (%l) %v");
    made->set_level(spdlog::level::info);
    made->flush_on(spdlog::level::trace);
    return made;
  }());
  return *logger;
}

void countLines(benchmark::State& state) {
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()));
}

void rawWriteOfReadyLine(benchmark::State& state) {
  for (auto _ : state) {
    benchmark::DoNotOptimize(::write(nullDevice(), kReadyLine.data(), kReadyLine.size()));
  }
  countLines(state);
}

void writtenLine(benchmark::State& state) {
  useConsoleLogger();
  for (auto _ : state) benchmark::DoNotOptimize(Logger::log(classification::Warning, kText));
  countLines(state);
}

void writtenLineFormatted(benchmark::State& state) {
  useConsoleLogger();
  for (auto _ : state) {
    benchmark::DoNotOptimize(hoist::logFormat(
        classification::Warning, "launched helper for command {}, process {}", "capture", 4711));
  }
  countLines(state);
}

void writtenLineSpdlog(benchmark::State& state) {
  for (auto _ : state) spdlogLogger().warn(kText);
  countLines(state);
}

void writtenLineFormattedSpdlog(benchmark::State& state) {
  for (auto _ : state) {
    spdlogLogger().warn("launched helper for command {}, process {}", "capture", 4711);
  }
  countLines(state);
}

// A dropped line still has an identifier, which its caller may use as a parent.
void droppedLine(benchmark::State& state) {
  useConsoleLogger();
  for (auto _ : state) benchmark::DoNotOptimize(Logger::log(classification::Debug, kText));
  countLines(state);
}

void droppedLineFormatted(benchmark::State& state) {
  useConsoleLogger();
  for (auto _ : state) {
    benchmark::DoNotOptimize(hoist::logFormat(
        classification::Debug, "launched helper for command {}, process {}", "capture", 4711));
  }
  countLines(state);
}

void droppedLineFormattedSpdlog(benchmark::State& state) {
  for (auto _ : state) {
    spdlogLogger().debug("launched helper for command {}, process {}", "capture", 4711);
  }
  countLines(state);
}

BENCHMARK(rawWriteOfReadyLine);
BENCHMARK(writtenLine)->ThreadRange(1, 2);
BENCHMARK(writtenLineSpdlog)->ThreadRange(1, 2);
BENCHMARK(writtenLineFormatted);
BENCHMARK(writtenLineFormattedSpdlog);
BENCHMARK(droppedLine)->ThreadRange(1, 2);
BENCHMARK(droppedLineFormatted);
BENCHMARK(droppedLineFormattedSpdlog);

}  // namespace

BENCHMARK_MAIN();
