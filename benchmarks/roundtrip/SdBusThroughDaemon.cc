// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// sd-bus through a dbus-daemon of this benchmark's own, which the serving process starts beside
// itself.

#include <fstream>

#include "roundtrip/SdBusParts.h"
#include "support/PeerProcess.h"

namespace hoist::bench {
namespace {

constexpr const char* kBusName = "bench.Barrier";

std::string address(const std::string& path) {
  return "unix:path=" + path;
}

Bus connectBus(const std::string& path) {
  Bus bus = newBus();
  check(sd_bus_set_address(bus.get(), address(path).c_str()));
  check(sd_bus_set_bus_client(bus.get(), 1));
  check(sd_bus_start(bus.get()));
  return bus;
}

void serve(const std::string& path) {
  std::ofstream(path + ".conf")
      << "<!DOCTYPE busconfig PUBLIC \"-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN\"\n"
         "  \"http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd\">\n"
         "<busconfig><listen>"
      << address(path)
      << "</listen><auth>EXTERNAL</auth><policy context=\"default\"><allow send_destination=\"*\"/>"
         "<allow receive_sender=\"*\"/><allow own=\"*\"/></policy></busconfig>\n";
  // It prints its address when it listens.
  const PeerProcess daemon({"dbus-daemon", "--config-file=" + path + ".conf", "--nofork",
                            "--nopidfile", "--print-address"});
  Bus bus = connectBus(path);
  check(sd_bus_request_name(bus.get(), kBusName, 0));
  PeerProcess::sayReady();
  serveBarrier(bus.get());
}

}  // namespace

Contender sdBusThroughDaemon() {
  return {"SdBusThroughDaemon", serve, [](const std::string& path) -> std::unique_ptr<Caller> {
            return std::make_unique<SdBusCaller>(connectBus(path), kBusName);
          }};
}

}  // namespace hoist::bench
