// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "hoistctl/Commands.h"

#include <fmt/format.h>

#include <algorithm>
#include <memory>

#include "hoistctl/HoistClient.h"
#include "hoistctl/Output.h"

namespace hoist::ctl {
namespace {

double microseconds(std::chrono::nanoseconds time) {
  return static_cast<double>(time.count()) / 1000;
}

void printLaunch(const LaunchedHelper& helper, const std::optional<HelperFacts>& facts) {
  fmt::print("service name    {}\n", shown(helper.serviceName));
  if (!facts) {
    fmt::print("endpoint        none: the helper did not publish one in time\n");
    return;
  }
  fmt::print("endpoint        in hand\nbarrier         {:.1f} µs\n", microseconds(facts->barrier));
  fmt::print("command         {} ({})\n", shown(facts->name), shown(facts->humanReadableName));
  fmt::print("process         {}{}\n", facts->process, facts->privileged ? ", privileged" : "");
  if (facts->realUser)
    fmt::print("real user       {}\neffective user  {}\n", *facts->realUser, *facts->effectiveUser);
}

Json launchAsJson(const LaunchedHelper& helper, const std::optional<HelperFacts>& facts) {
  Json json{{"serviceName", helper.serviceName}, {"endpoint", facts.has_value()}};
  if (!facts) return json;
  json["barrierMicroseconds"] = microseconds(facts->barrier);
  json["command"] = facts->name;
  json["humanReadableName"] = facts->humanReadableName;
  json["process"] = facts->process;
  json["privileged"] = facts->privileged;
  if (facts->realUser) {
    json["realUser"] = *facts->realUser;
    json["effectiveUser"] = *facts->effectiveUser;
  }
  return json;
}

}  // namespace

void addStatusCommand(CLI::App& app, const Common& common) {
  auto command = app.add_subcommand("status", "Show the hoist's version and how fast it answers");
  command->callback([&common] {
    HoistClient client(common.serviceName);
    std::string version = client.componentVersion();
    std::uint32_t build = client.buildNumber();
    double barrier = microseconds(client.barrier());
    if (common.json) {
      printJson({{"componentVersion", version},
                 {"buildNumber", build},
                 {"barrierMicroseconds", barrier}});
    } else {
      fmt::print("component version  {}\nbuild number       {}\nbarrier            {:.1f} µs\n",
                 shown(version), build, barrier);
    }
  });
}

void addBarrierCommand(CLI::App& app, const Common& common) {
  auto command = app.add_subcommand("barrier", "Measure round trips through one connection");
  auto count = std::make_shared<std::size_t>(1);
  command->add_option("-n,--count", *count, "How many round trips")
      ->check(CLI::Range(1, 10'000'000));
  command->callback([&common, count] {
    HoistClient client(common.serviceName);
    std::vector<std::chrono::nanoseconds> times(*count);
    for (auto& time : times) time = client.barrier();
    std::ranges::sort(times);
    double fastest = microseconds(times.front());
    double median = microseconds(times[times.size() / 2]);
    double p99 = microseconds(times[times.size() * 99 / 100]);
    if (common.json) {
      printJson({{"count", *count},
                 {"minimumMicroseconds", fastest},
                 {"medianMicroseconds", median},
                 {"p99Microseconds", p99}});
    } else {
      fmt::print("{} round trips: minimum {:.1f} µs, median {:.1f} µs, 99th percentile {:.1f} µs\n",
                 *count, fastest, median, p99);
    }
  });
}

void addLaunchCommand(CLI::App& app, const Common& common) {
  struct Options {
    std::string helper;
    std::string command;
    std::vector<std::string> flags;
  };
  auto options = std::make_shared<Options>();
  auto command =
      app.add_subcommand("launch", "Have a helper launched with root's rights and talk to it");
  command
      ->add_option("helper", options->helper, "The helper's application bundle, or its executable")
      ->required();
  command
      ->add_option("-c,--command", options->command, "The command that the helper is started for")
      ->required();
  command->add_option("-f,--flag", options->flags, "A flag for the command; may be repeated")
      ->allow_extra_args(false);
  command->callback([&common, options] {
    HoistClient client(common.serviceName);
    auto helper =
        client.launch(helperExecutable(options->helper), options->command, options->flags);
    std::optional<HelperFacts> facts;
    if (helper.endpoint) facts = askHelper(*connectToHelper(helper, options->command));
    if (common.json) {
      printJson(launchAsJson(helper, facts));
    } else {
      printLaunch(helper, facts);
    }
  });
}

}  // namespace hoist::ctl
