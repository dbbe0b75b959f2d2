// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/xpc/Connection.h"

namespace hoist::ctl {

// What went wrong, as an exit status.
enum class Failure { Refused = 1, Usage = 2, Unreachable = 3 };

class CommandError : public std::runtime_error {
 public:
  CommandError(Failure kind, const std::string& message)
      : std::runtime_error(message), kind_(kind) {}
  Failure kind() const { return kind_; }

 private:
  Failure kind_;
};

// What went wrong has been printed already.
class Reported : public std::exception {
 public:
  explicit Reported(Failure kind) : kind_(kind) {}
  Failure kind() const { return kind_; }

 private:
  Failure kind_;
};

struct LaunchedHelperFacts {
  std::string serviceName;
  // Nothing when the helper did not publish an endpoint in time; then nothing below is known
  // either.
  bool hasEndpoint = false;
  std::chrono::nanoseconds barrier{};
  std::string name;
  std::string humanReadableName;
  pid_t process = 0;
  bool privileged = false;
  std::optional<uid_t> realUser;
  std::optional<uid_t> effectiveUser;
};

// A client of the hoist whose calls wait for their answers. Every call throws CommandError when the
// connection fails.
class HoistClient {
 public:
  explicit HoistClient(std::string serviceName);

  std::string componentVersion();
  std::uint32_t buildNumber();
  // How long the round trip took.
  std::chrono::nanoseconds barrier();

  // Has the calling user's folder in the local support folder made. Whether that worked is not
  // answered.
  void createSupportFolder();

  // Starts the helper and talks to it through its endpoint. Throws CommandError (Refused) when the
  // hoist does not.
  LaunchedHelperFacts launch(const std::string& helperPath, const std::string& command,
                             const std::vector<std::string>& flags);

 private:
  const std::string serviceName_;
  Ref<xpc::Connection> connection_;
};

}  // namespace hoist::ctl
