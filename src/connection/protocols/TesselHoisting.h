// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "connection/protocols/KLComponentServing.h"
#include "connection/protocols/KLHelperCoupling.h"
#include "platform/xpc/Endpoint.h"
#include "platform/xpc/Protocol.h"
#include "platform/xpc/Reply.h"

namespace hoist {

// What the hoist does for its clients.
class TesselHoisting : public virtual KLComponentServing, public virtual KLHelperCoupling {
 public:
  // Starts the helper, which is the main executable of an application bundle, for one command. Both
  // values are nil when the launch failed; there is no reply at all when the helper is not validly
  // signed. launchPrivilegedHelper:commandName:flags:reply:
  virtual void launchPrivilegedHelper(
      std::string helperPath, std::string commandName, std::vector<std::string> flags,
      xpc::Reply<std::optional<std::string>, std::optional<xpc::Endpoint>> reply) = 0;
  // Makes the calling user's folder in the local support folder.
  virtual void createBootApplicationSupportPathForUser() = 0;
  // Samples the call stacks of processes into reports, one a process; answers whether all ended
  // within the time limit. asyncSample:report:withReply:
  virtual void asyncSample(std::vector<std::int32_t> processes, std::vector<std::string> reports,
                           xpc::Reply<bool> reply) = 0;
};

const xpc::Protocol& tesselHoistingProtocol();

}  // namespace hoist
