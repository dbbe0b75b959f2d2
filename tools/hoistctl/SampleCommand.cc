// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
//
// What the hoist is asked for says which processes and which reports, and nothing else: its tool
// samples for a time of its own. A shorter time is had by ending the samplers, which run as the
// user; a flame graph is drawn here, from the report.
#include <fmt/format.h>
#include <sys/stat.h>

#include <algorithm>
#include <climits>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>

#include "flamegraph/FlameGraph.h"
#include "hoistctl/Commands.h"
#include "hoistctl/HoistClient.h"
#include "hoistctl/Output.h"
#include "hoistctl/ProgressBar.h"
#include "hoistctl/RunningSampler.h"
#include "hoistctl/SampleRequest.h"

namespace hoist::ctl {
namespace {

namespace fs = std::filesystem;
using Seconds = std::chrono::duration<double>;
using SteadyClock = std::chrono::steady_clock;

// How long the hoist's tool samples.
constexpr double kLongest = 10;
constexpr Seconds kBetweenLooks{0.05};

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

void drawFlameGraph(Sample& sample, const fs::path& folder) {
  std::ifstream file(sample.report, std::ios::binary);
  const std::string report{std::istreambuf_iterator<char>(file), {}};
  const auto graph = flamegraph::fromReport(report);
  if (!graph) throw CommandError(Failure::Refused, sample.report + ": no whole report");
  sample.flameGraph = folder / fmt::format("sample-{}.svg", sample.process);
  std::ofstream picture(sample.flameGraph, std::ios::binary | std::ios::trunc);
  if (!(picture << flamegraph::picture(*graph)).flush())
    throw CommandError(Failure::Refused, sample.flameGraph + ": cannot be written");
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
