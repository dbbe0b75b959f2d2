// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// The same helper, started with other rights in every way that a machine offers: from the request
// to the moment when whoever asked holds the helper's endpoint.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <exception>
#include <filesystem>
#include <map>
#include <memory>

#include "launch/HoistInstallation.h"
#include "launch/Ways.h"
#include "platform/SystemCall.h"
#include "support/Latencies.h"
#include "support/PeerProcess.h"

namespace hoist::bench {
namespace {

constexpr int kLaunchesARound = 20;
constexpr const char* kHelper = HOIST_BUILD_DIR "/helper/bench_helper";
constexpr const char* kSystemBus = "/run/dbus/system_bus_socket";

// Mounts from here on are this process's own.
void leaveMountNamespace() {
  systemCall("unshare", [] { return ::unshare(CLONE_NEWNS); });
  systemCall("mount", [] { return ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr); });
}

// pkexec asks polkit over the system bus. Where none runs, one does for the time of the benchmark.
std::unique_ptr<PeerProcess> makeSystemBus() {
  if (::system("dbus-send --system --dest=org.freedesktop.DBus --print-reply / "
               "org.freedesktop.DBus.Peer.Ping >/dev/null 2>&1") == 0) {
    return nullptr;
  }
  std::filesystem::create_directories(std::filesystem::path(kSystemBus).parent_path());
  return std::make_unique<PeerProcess>(std::vector<std::string>{
      "dbus-daemon", "--system", "--nofork", "--nopidfile", "--print-address"});
}

// One way, from the first of its rounds to the end of the program.
class Bare {
 public:
  explicit Bare(const std::vector<std::string>& wrapper)
      : launcher_(openFolder(), kHelper, wrapper) {
    launcher_.launch();
  }
  void measure(Latencies& latencies) {
    std::optional<RunningHelper> helper;
    latencies.measure([&] { helper.emplace(launcher_.launch()); });
  }

 private:
  // The helper calls back as whoever it has become.
  const std::string& openFolder() {
    systemCall("chmod", [&] { return ::chmod(folder_.path().c_str(), 0755); });
    return folder_.path();
  }

  TemporaryFolder folder_;
  BareLauncher launcher_;
};

class Hoist {
 public:
  void measure(Latencies& latencies) {
    latencies.measure([&] { installation_.launch(); });
    installation_.waitForTheEndOfTheHelper();
  }

 private:
  HoistInstallation installation_;
};

template <typename Way, typename... Arguments>
void add(const char* name, Arguments... arguments) {
  auto way = std::make_shared<std::unique_ptr<Way>>();
  auto run = [=](benchmark::State& state) {
    try {
      if (!*way) *way = std::make_unique<Way>(arguments...);
      Latencies latencies;
      for (auto _ : state) {
        (*way)->measure(latencies);
        state.SetIterationTime(latencies.lastSeconds());
      }
      latencies.report(state);
    } catch (const std::exception& error) {
      state.SkipWithError(error.what());
    }
  };
  benchmark::RegisterBenchmark(name, run)->UseManualTime()->Iterations(kLaunchesARound);
}

void registerBenchmarks() {
  using Words = std::vector<std::string>;
  const std::string user = std::to_string(kUser);
  add<Bare>("Bare", Words{});
  add<Hoist>("Hoist");
  add<Bare>("Setpriv", Words{"setpriv", "--reuid=" + user, "--regid=" + user, "--clear-groups"});
  add<Bare>("Runuser", Words{"runuser", "--user=nobody", "--"});
  add<Bare>("Sudo", Words{"sudo", "-n"});
  add<Bare>("Pkexec", Words{"pkexec"});
}

}  // namespace
}  // namespace hoist::bench

int main(int argc, char** argv) {
  try {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
    if (::geteuid() != 0) throw std::runtime_error("needs root: the hoist is root's daemon");
    hoist::bench::leaveMountNamespace();
    const auto bus = hoist::bench::makeSystemBus();
    hoist::bench::registerBenchmarks();
    benchmark::RunSpecifiedBenchmarks();
    benchmark::ClearRegisteredBenchmarks();
    return 0;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "bench_launch: %s\n", error.what());
    return 1;
  }
}
