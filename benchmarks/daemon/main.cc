// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// Each run starts a daemon on demand: systemd-socket-activate holds the socket, this program
// connects, asks for the version and waits for the answer. Then it reads how much memory is the
// daemon's own.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <thread>

#include "platform/FileDescriptor.h"
#include "platform/SystemCall.h"
#include "support/Latencies.h"
#include "support/TemporaryFolder.h"

namespace hoist::bench {
namespace {

using Clock = std::chrono::steady_clock;

FileDescriptor connectTo(const std::string& path) {
  FileDescriptor client(
      systemCall("socket", [] { return ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0); }));
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, sizeof address.sun_path - 1);
  systemCall("connect", [&] {
    return ::connect(client.get(), reinterpret_cast<sockaddr*>(&address), sizeof address);
  });
  return client;
}

// Holds the first connection open and has got its first answer.
class Client {
 public:
  virtual ~Client() = default;
};

class BusClient : public Client {
 public:
  explicit BusClient(const std::string& path) {
    sd_bus_message* answer = nullptr;
    int result = sd_bus_new(&bus_);
    if (result >= 0) result = sd_bus_set_address(bus_, ("unix:path=" + path).c_str());
    if (result >= 0) result = sd_bus_start(bus_);
    if (result >= 0) {
      result = sd_bus_call_method(bus_, nullptr, "/", "com.kelvo.KLComponentInstalling",
                                  "queryComponentVersionWithReply_", nullptr, &answer, nullptr);
    }
    if (result < 0) throw std::system_error(-result, std::system_category(), "no answer");
    sd_bus_message_unref(answer);
  }
  ~BusClient() override { sd_bus_flush_close_unref(bus_); }

 private:
  sd_bus* bus_ = nullptr;
};

class RawClient : public Client {
 public:
  explicit RawClient(const std::string& path) : socket_(connectTo(path)) {
    char byte = 'v';
    if (::write(socket_.get(), &byte, 1) != 1 || ::read(socket_.get(), &byte, 1) != 1)
      throw std::runtime_error("no answer");
  }

 private:
  FileDescriptor socket_;
};

// A daemon that does not run until somebody connects.
class OnDemand {
 public:
  explicit OnDemand(const std::string& program) : path_(folder_ / "socket") {
    pid_ = ::fork();
    if (pid_ == 0) {
      const int nothing = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
      ::dup2(nothing, STDERR_FILENO);
      ::execlp("systemd-socket-activate", "systemd-socket-activate", "--listen", path_.c_str(),
               "--fdname", "com.kelvo.hoist", program.c_str(), nullptr);
      ::_exit(127);
    }
    waitForSocket();
  }
  ~OnDemand() {
    ::kill(pid_, SIGKILL);
    ::waitpid(pid_, nullptr, 0);
  }
  OnDemand(const OnDemand&) = delete;
  OnDemand& operator=(const OnDemand&) = delete;

  const std::string& path() const { return path_; }

  // Proportional set size, in bytes.
  double memory() const {
    std::ifstream rollup("/proc/" + std::to_string(pid_) + "/smaps_rollup");
    for (std::string line; std::getline(rollup, line);) {
      std::istringstream words(line);
      std::string key;
      double kibibytes = 0;
      if (words >> key >> kibibytes && key == "Pss:") return kibibytes * 1024;
    }
    throw std::runtime_error("no memory figures: not root, or the daemon has ended");
  }

 private:
  void waitForSocket() const {
    const auto deadline = Clock::now() + std::chrono::seconds(10);
    // It listens a moment after the file appears, so a row of the kernel's table is waited for.
    for (std::string table; table.find(path_) == std::string::npos;) {
      if (Clock::now() > deadline) throw std::runtime_error("systemd-socket-activate: no socket");
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
      std::ifstream sockets("/proc/net/unix");
      table.clear();
      for (std::string line; std::getline(sockets, line);) {
        // Flags 00010000: it listens.
        if (line.find(" 00010000 ") != std::string::npos) table += line + "\n";
      }
    }
  }

  TemporaryFolder folder_;
  std::string path_;
  pid_t pid_ = -1;
};

template <typename ClientType>
void firstAnswer(benchmark::State& state, const std::string& program) {
  Latencies latencies;
  double memory = 0;
  for (auto _ : state) {
    const OnDemand daemon(program);
    std::unique_ptr<Client> client;
    const auto start = Clock::now();
    client = std::make_unique<ClientType>(daemon.path());
    const auto duration = Clock::now() - start;
    latencies.add(duration);
    state.SetIterationTime(std::chrono::duration<double>(duration).count());
    memory = daemon.memory();
  }
  latencies.report(state);
  state.counters["pss"] = memory;
}

void registerBenchmarks() {
  const std::string programs = HOIST_BUILD_DIR "/bin/";
  const auto add = [](const char* name, auto run, std::string program) {
    benchmark::RegisterBenchmark(name, [=](benchmark::State& state) { run(state, program); })
        ->UseManualTime()
        ->Iterations(10);
  };
  add("Bare", firstAnswer<RawClient>, programs + "peer_bare_service");
  add("SdBusService", firstAnswer<BusClient>, programs + "peer_sdbus_service");
  add("Hoist", firstAnswer<BusClient>, programs + "hoist");
}

}  // namespace
}  // namespace hoist::bench

int main(int argc, char** argv) {
  try {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
    hoist::bench::registerBenchmarks();
    benchmark::RunSpecifiedBenchmarks();
    return 0;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "bench_daemon: %s\n", error.what());
    return 1;
  }
}
