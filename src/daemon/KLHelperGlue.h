// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <optional>
#include <string>

#include "daemon/CouplingTurns.h"
#include "platform/ConditionLock.h"
#include "platform/Mutex.h"
#include "platform/xpc/Endpoint.h"
#include "platform/xpc/Reply.h"

namespace hoist {

// How long a launch waits for its helper's endpoint.
inline constexpr std::chrono::seconds kCouplingLimit{20};

// The rendezvous of a launch with the helper that it started: the launch announces that it waits,
// the helper calls back with its listener's endpoint, the launch picks the endpoint up. One
// coupling at a time in the process. Safe from any thread; a launch and the helper's call must be
// on different ones.
class KLHelperGlue {
 public:
  // Of the coupling lock. Before the first prepare the lock counts as idle.
  enum Condition { kIdle = 0, kWaiting = 1, kCoupled = 2 };

  static KLHelperGlue& shared();

  // The service that helpers call back; none means that coupling is off.
  std::optional<std::string> helperCouplingServiceName() const;
  void setHelperCouplingServiceName(std::optional<std::string> name);

  // A launch takes its turn before it prepares, and keeps it until the coupling is over.
  CouplingTurns& turns() { return turns_; }

  // Waits, without a limit, until no other coupling is in progress, then announces this one. It
  // ends because each of its predecessors does.
  void prepareToConnectWithHelper(const std::string& serviceName);
  // Waits for the announced helper's endpoint; nothing when it did not come in time. The state is
  // idle afterwards.
  std::optional<xpc::Endpoint> endpointForLaunchedHelper(const std::string& serviceName);
  // Gives up a coupling; one that another launch has announced is left alone. No name: the helper
  // never started.
  void abandonConnectionWithHelper(const std::optional<std::string>& serviceName);

  // The helper's call. While a launch waits, whichever helper of its user calls is taken; else the
  // call is logged and its reply never called, as it is when the caller is no such helper.
  void connectWithEndpoint(const xpc::Endpoint& endpoint, const std::string& commandID,
                           const xpc::Reply<>& reply, bool isExpected);

  int condition() const { return lock_.condition(); }

 private:
  void clear();

  mutable Mutex nameMutex_;
  std::optional<std::string> serviceName_ GUARDED_BY(nameMutex_);
  CouplingTurns turns_;
  // The coupling lock; what follows is touched only by whoever holds it.
  ConditionLock lock_{kIdle};
  std::optional<std::string> pendingHelper_;
  std::optional<xpc::Endpoint> endpoint_;
};

}  // namespace hoist
