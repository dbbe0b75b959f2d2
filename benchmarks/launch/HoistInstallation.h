// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <condition_variable>
#include <mutex>
#include <optional>
#include <string>

#include "connection/protocols/TesselHoisting.h"
#include "platform/xpc/Connection.h"
#include "support/TemporaryFolder.h"

namespace hoist::bench {

// A running hoist that trusts a signer of this benchmark's, a helper bundle signed by it and
// installed for the ordinary user, and that user's connection. Everything lies in a mount namespace
// that this process has made its own.
class HoistInstallation {
 public:
  HoistInstallation();
  ~HoistInstallation();
  HoistInstallation(const HoistInstallation&) = delete;
  HoistInstallation& operator=(const HoistInstallation&) = delete;

  // From the call to the endpoint in hand. Throws std::runtime_error when there is none.
  void launch();
  // The helper ends, because nobody talks to it, and is collected: what that costs is no part of
  // the next launch.
  void waitForTheEndOfTheHelper();

 private:
  void installHelper();
  void startHoist();
  void connectAsUser();
  void wait(std::unique_lock<std::mutex>& lock);

  TemporaryFolder folder_;
  std::string helper_;
  pid_t hoist_ = -1;
  Ref<xpc::Connection> connection_;
  Ref<xpc::Proxy> proxy_;

  std::mutex mutex_;
  std::condition_variable changed_;
  bool answered_ = false;
  bool failed_ = false;
  std::optional<xpc::Endpoint> endpoint_;
};

}  // namespace hoist::bench
