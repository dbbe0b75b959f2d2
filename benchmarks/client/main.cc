// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// What a client's own library costs: the same server, called through KLConnection and through
// sdbus-c++, by one thread, by ten that share one object, and from the start, as a program that
// makes one call. This program is both ends: it starts itself as "bench_client --serve FOLDER".

#include <benchmark/benchmark.h>
#include <sdbus-c++/sdbus-c++.h>

#include <cstdio>
#include <cstring>
#include <functional>
#include <memory>
#include <stdexcept>
#include <thread>

#include "connection/KLServiceConnection.h"
#include "connection/protocols/KLComponentMessaging.h"
#include "platform/xpc/Listener.h"
#include "platform/xpc/ServiceSocket.h"
#include "support/Latencies.h"
#include "support/PeerProcess.h"
#include "support/TemporaryFolder.h"

namespace hoist::bench {
namespace {

constexpr const char* kService = "bench.client";
constexpr int kThreads = 10;

// ----- The server --------------------------------------------------------------------------------

class Service final : public KLComponentMessaging {
  void barrierWithCompletion(xpc::Reply<> completion) override { completion(); }
};

struct Server final : xpc::ListenerDelegate {
  bool shouldAcceptNewConnection(xpc::Listener&, const Ref<xpc::Connection>& connection) override {
    connection->setExportedInterface(
        xpc::Interface::interfaceWithProtocol(klComponentMessagingProtocol()));
    connection->setExportedObject(make<Service>());
    connection->resume();
    return true;
  }
};

[[noreturn]] void serve(const std::string& folder) {
  xpc::setRuntimeDirectory(folder);
  auto server = make<Server>();
  auto listener = xpc::Listener::initWithMachServiceName(kService);
  listener->setDelegate(server);
  listener->resume();
  PeerProcess::sayReady();
  for (;;) std::this_thread::sleep_for(std::chrono::hours(1));  // its threads serve
}

// ----- The clients -------------------------------------------------------------------------------

class Client {
 public:
  virtual ~Client() = default;
  // One round trip, from any thread.
  virtual void call() = 0;
};

class Library final : public Client {
 public:
  explicit Library(bool verify)
      : connection_(
            KLServiceConnection::initWithServiceName(kService, klComponentMessagingProtocol())) {
    connection_->setVerifyConnection(verify);
  }
  void call() override {
    if (!connection_->ping()) throw std::runtime_error("no answer");
  }

 private:
  const Ref<KLServiceConnection> connection_;
};

class SdbusCpp final : public Client {
 public:
  explicit SdbusCpp(const std::string& folder)
      : proxy_(sdbus::createProxy(
            sdbus::createSessionBusConnectionWithAddress("unix:path=" + folder + "/" + kService),
            kService, "/")) {}
  void call() override {
    proxy_->callMethod("barrierWithCompletion_")
        .onInterface(klComponentMessagingProtocol().interfaceName());
  }

 private:
  const std::unique_ptr<sdbus::IProxy> proxy_;
};

// A connection to a message bus, and a first question to the bus itself.
class MessageBus final : public Client {
 public:
  explicit MessageBus(const std::string& address)
      : proxy_(sdbus::createProxy(sdbus::createSessionBusConnectionWithAddress(address),
                                  "org.freedesktop.DBus", "/org/freedesktop/DBus")) {}
  void call() override {
    std::string identifier;
    proxy_->callMethod("GetId").onInterface("org.freedesktop.DBus").storeResultsTo(identifier);
  }

 private:
  const std::unique_ptr<sdbus::IProxy> proxy_;
};

// ----- The measurements --------------------------------------------------------------------------

using MakeClient = std::function<std::unique_ptr<Client>()>;

void roundTrips(benchmark::State& state, Client& client) {
  Latencies latencies;
  for (auto _ : state) latencies.measure([&] { client.call(); });
  if (state.thread_index() == 0) latencies.report(state);
}

void firstCall(benchmark::State& state, const MakeClient& makeClient) {
  Latencies latencies;
  for (auto _ : state) latencies.measure([&] { makeClient()->call(); });
  latencies.report(state);
}

benchmark::internal::Benchmark* addRoundTrips(const char* name, Client& client) {
  // Connecting is another benchmark.
  client.call();
  return benchmark::RegisterBenchmark(
             name, [&client](benchmark::State& state) { roundTrips(state, client); })
      ->UseRealTime();
}

void addFirstCall(const char* name, const MakeClient& makeClient) {
  benchmark::RegisterBenchmark(name, [makeClient](benchmark::State& state) {
    firstCall(state, makeClient);
  })->UseRealTime();
}

void measure() {
  TemporaryFolder folder;
  PeerProcess server({PeerProcess::thisProgram(), "--serve", folder.path()});
  const std::string bus = "unix:path=" + folder.path() + "/bus";
  PeerProcess daemon({"dbus-daemon", "--session", "--address=" + bus, "--nofork", "--nopidfile",
                      "--print-address"});
  xpc::setRuntimeDirectory(folder.path());
  Library library(true);
  SdbusCpp sdbusCpp(folder.path());
  addRoundTrips("Hoist", library);
  addRoundTrips("SdbusCpp", sdbusCpp);
  addRoundTrips("HoistShared", library)->Threads(kThreads);
  addRoundTrips("SdbusCppShared", sdbusCpp)->Threads(kThreads);
  addFirstCall("HoistFirst", [] { return std::make_unique<Library>(true); });
  addFirstCall("HoistFirstUnverified", [] { return std::make_unique<Library>(false); });
  addFirstCall("SdbusCppFirst", [&] { return std::make_unique<SdbusCpp>(folder.path()); });
  addFirstCall("BusFirst", [&] { return std::make_unique<MessageBus>(bus); });
  benchmark::RunSpecifiedBenchmarks();
}

}  // namespace
}  // namespace hoist::bench

int main(int argc, char** argv) {
  try {
    if (argc == 3 && std::strcmp(argv[1], "--serve") == 0) hoist::bench::serve(argv[2]);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
    hoist::bench::measure();
    return 0;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "bench_client: %s\n", error.what());
    return 1;
  }
}
