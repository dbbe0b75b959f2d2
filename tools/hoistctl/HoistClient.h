// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "connection/KLEndpointConnection.h"
#include "connection/KLServiceConnection.h"
#include "hoistctl/CommandError.h"

namespace hoist::ctl {

// A helper that the hoist has launched.
struct LaunchedHelper {
  std::string serviceName;
  // Nothing when the helper did not publish one in time.
  std::optional<xpc::Endpoint> endpoint;
};

// What a helper says of itself through its endpoint.
struct HelperFacts {
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
  // How long a round trip took.
  std::chrono::nanoseconds barrier();

  // Has the calling user's folder in the local support folder made. Whether that worked is not
  // answered.
  void createSupportFolder();

  // Has the helper started for the command. Throws CommandError (Refused) when the hoist does not.
  LaunchedHelper launch(const std::string& helperPath, const std::string& command,
                        const std::vector<std::string>& flags);

 private:
  const Ref<KLServiceConnection> connection_;
};

// The path for a process that stands elsewhere: absolute, without "." and "..". They are the file
// system's, not the text's: behind a link, ".." is not the folder of the link. A link at its end
// stays one.
std::string pathFromHere(const std::string& path);

// The helper's executable: the path itself, or the main executable of the bundle that it names.
// Throws CommandError (Usage).
std::string helperExecutable(const std::string& path);

// The connection through which the command of a launched helper is driven. Throws CommandError when
// the helper has no endpoint.
Ref<KLEndpointConnection> connectToHelper(const LaunchedHelper& helper, const std::string& command);

HelperFacts askHelper(KLConnection& helper);

}  // namespace hoist::ctl
