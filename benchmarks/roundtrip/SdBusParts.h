// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <systemd/sd-bus.h>

#include <memory>
#include <string>

#include "roundtrip/Contender.h"

namespace hoist::bench {

inline constexpr const char* kPath = "/";
inline constexpr const char* kInterface = "bench.Barrier";
inline constexpr const char* kMethod = "Call";

using Bus = std::unique_ptr<sd_bus, sd_bus* (*)(sd_bus*)>;

// Throws std::system_error for a negative result.
int check(int result);
// A connection that is not started yet.
Bus newBus();
// Answers calls until the other end goes.
void serveBarrier(sd_bus* bus);
// One call, answered. The destination is null peer to peer.
void callBarrier(sd_bus* bus, const char* destination);

class SdBusCaller : public Caller {
 public:
  SdBusCaller(Bus bus, std::string destination)
      : bus_(std::move(bus)), destination_(std::move(destination)) {}
  void call() override {
    callBarrier(bus_.get(), destination_.empty() ? nullptr : destination_.c_str());
  }

 private:
  Bus bus_;
  std::string destination_;
};

}  // namespace hoist::bench
