// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
//
// What the hoist is asked for says which processes and which reports, and nothing else: its tool
// samples for a time of its own. A shorter time is had by ending the samplers, which run as the
// user; a flame graph is drawn here, from the report.
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <filesystem>
#include <map>
#include <memory>

#include "flamegraph/FlameGraph.h"
#include "hoistctl/Commands.h"
#include "hoistctl/HoistClient.h"
#include "hoistctl/Output.h"
#include "hoistctl/ProgressBar.h"
#include "hoistctl/RunningSampler.h"
#include "hoistctl/SampleRequest.h"
#include "platform/FileReading.h"
#include "platform/SystemCall.h"

namespace hoist::ctl {
namespace {

namespace fs = std::filesystem;
using Seconds = std::chrono::duration<double>;
using SteadyClock = std::chrono::steady_clock;

// How long the hoist's tool samples.
constexpr double kLongest = 10;
constexpr Seconds kBetweenLooks{0.05};
// Bytes; the sampler writes no larger ones.
constexpr std::uint64_t kLargestReport = 256 << 20;

struct Options {
  std::vector<pid_t> processes;
  double duration = kLongest;
  std::string reports = ".";
  std::string flameGraphs;
};

// What tells a report from the one that was there before.
struct FileState {
  ino_t inode = 0;
  timespec modified{};

  static std::optional<FileState> of(const std::string& path) {
    struct stat status;
    if (::stat(path.c_str(), &status) != 0) return std::nullopt;
    return FileState{status.st_ino, status.st_mtim};
  }
  bool operator==(const FileState& other) const {
    return inode == other.inode && modified.tv_sec == other.modified.tv_sec &&
           modified.tv_nsec == other.modified.tv_nsec;
  }
};

// One process's.
struct Sample {
  pid_t process;
  std::string report;
  std::optional<FileState> before;
  bool hasReport = false;
  // Empty: none.
  std::string flameGraph;
};

std::vector<Sample> samplesOf(const Options& options) {
  std::vector<Sample> samples;
  const fs::path folder = pathFromHere(options.reports);
  for (pid_t process : options.processes) {
    const std::string report = folder / fmt::format("sample-{}.txt", process);
    samples.push_back({.process = process, .report = report, .before = FileState::of(report)});
  }
  return samples;
}

// Ends each sampler when it has sampled for the time, counted from when it was first seen.
class TimeKeeper {
 public:
  explicit TimeKeeper(double duration) : duration_(duration) {}

  void look(const std::vector<pid_t>& processes) {
    if (duration_ >= kLongest) return;
    const auto now = SteadyClock::now();
    for (pid_t process : processes) {
      const auto sampler = samplerOf(process);
      if (!sampler) continue;
      const auto seen = seen_.try_emplace(*sampler, now).first->second;
      if (Seconds(now - seen).count() >= duration_) endSampling(*sampler);
    }
  }

 private:
  const double duration_;
  std::map<pid_t, SteadyClock::time_point> seen_;
};

// Answers whether all samples ended in time.
bool takeSamples(const Common& common, const Options& options, const std::vector<Sample>& samples) {
  std::vector<std::string> reports;
  reports.reserve(samples.size());
  for (const Sample& sample : samples) reports.push_back(sample.report);
  ProgressBar bar(common.json);
  TimeKeeper keeper(options.duration);
  const auto start = SteadyClock::now();
  SampleRequest request(common.serviceName, options.processes, reports);
  while (!request.waitForAnswer(kBetweenLooks)) {
    keeper.look(options.processes);
    bar.show(fmt::format(
        "sampling {} {}",
        samples.size() == 1 ? "one process" : fmt::format("{} processes", samples.size()),
        progressText(Seconds(SteadyClock::now() - start).count(), options.duration)));
  }
  return request.finished();
}

// Others may write to the folders, too: neither a link nor a FIFO of theirs is read or written.
std::string readReport(const std::string& path) {
  try {
    const auto file = platform::openRegularFile(path);
    const auto bytes = platform::readWhole(file.get(), kLargestReport);
    return {bytes.begin(), bytes.end()};
  } catch (const SystemCallError& error) {
    throw CommandError(Failure::Refused, fmt::format("{}: {}", path, errorText(error.number())));
  }
}

void writeNewFile(const std::string& path, std::string_view text) {
  bool made = ::unlink(path.c_str()) == 0 || errno == ENOENT;
  std::FILE* file = made ? std::fopen(path.c_str(), "wxe") : nullptr;
  bool written = file && std::fwrite(text.data(), 1, text.size(), file) == text.size();
  if (file) written = std::fclose(file) == 0 && written;
  if (!written)
    throw CommandError(Failure::Refused,
                       fmt::format("{}: cannot be written: {}", path, errorText(errno)));
}

void drawFlameGraph(Sample& sample, const fs::path& folder) {
  const std::string report = readReport(sample.report);
  const auto graph = flamegraph::fromReport(report);
  if (!graph) throw CommandError(Failure::Refused, sample.report + ": no whole report");
  const std::string path = folder / fmt::format("sample-{}.svg", sample.process);
  writeNewFile(path, flamegraph::picture(*graph));
  sample.flameGraph = path;
}

void printSamples(const Common& common, const std::vector<Sample>& samples, bool finished) {
  if (common.json) {
    Json list = Json::array();
    for (const Sample& sample : samples) {
      Json entry{{"process", sample.process}, {"report", nullptr}};
      if (sample.hasReport) entry["report"] = sample.report;
      if (!sample.flameGraph.empty()) entry["flameGraph"] = sample.flameGraph;
      list.push_back(std::move(entry));
    }
    printJson({{"finished", finished}, {"samples", std::move(list)}});
    return;
  }
  Table table({{"process", Align::Right}, {"report"}});
  for (const Sample& sample : samples) {
    const std::string process = std::to_string(sample.process);
    table.add({process, sample.hasReport ? shown(sample.report)
                        : finished       ? "none; the hoist's log says why"
                                         : "not yet: its sampler goes on"});
    if (!sample.flameGraph.empty()) table.add({"", shown(sample.flameGraph)});
  }
  table.print();
}

void runSampleCommand(const Common& common, const Options& options) {
  std::vector<Sample> samples = samplesOf(options);
  const bool finished = takeSamples(common, options, samples);
  for (Sample& sample : samples) {
    const auto now = FileState::of(sample.report);
    sample.hasReport = now && now != sample.before;
    if (sample.hasReport && !options.flameGraphs.empty())
      drawFlameGraph(sample, pathFromHere(options.flameGraphs));
  }
  printSamples(common, samples, finished);
  if (!finished || !std::ranges::all_of(samples, &Sample::hasReport))
    throw Reported(Failure::Refused);
}

}  // namespace

void addSampleCommand(CLI::App& app, const Common& common) {
  auto options = std::make_shared<Options>();
  auto command = app.add_subcommand(
      "sample", "Have the call stacks of processes sampled, all at the same time");
  command->add_option("process", options->processes, "Process identifiers")
      ->required()
      ->check(CLI::Range(1, INT_MAX));
  command
      ->add_option("-d,--duration", options->duration,
                   "For how many seconds; what the hoist's sampler takes is also the most")
      ->check(CLI::Range(0.01, kLongest))
      ->capture_default_str();
  command
      ->add_option("-o,--reports", options->reports, "The folder for the reports, sample-PID.txt")
      ->check(CLI::ExistingDirectory)
      ->capture_default_str();
  command
      ->add_option("-g,--flamegraph", options->flameGraphs,
                   "A folder for flame graphs of the reports, sample-PID.svg")
      ->check(CLI::ExistingDirectory);
  command->callback([&common, options] {
    auto& processes = options->processes;
    std::ranges::sort(processes);
    processes.erase(std::unique(processes.begin(), processes.end()), processes.end());
    runSampleCommand(common, *options);
  });
}

}  // namespace hoist::ctl
