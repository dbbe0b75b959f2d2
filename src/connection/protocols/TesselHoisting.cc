// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "connection/protocols/TesselHoisting.h"

namespace hoist {

const xpc::Protocol& tesselHoistingProtocol() {
  static const auto& protocol = *new xpc::Protocol(
      xpc::Protocol("TesselHoisting")
          .adopts(klComponentServingProtocol())
          .adopts(klHelperCouplingProtocol())
          .method<&TesselHoisting::launchPrivilegedHelper>(
              "launchPrivilegedHelper:commandName:flags:reply:",
              {"helperPath", "commandName", "flags"}, {"serviceName", "endpoint"})
          .method<&TesselHoisting::createBootApplicationSupportPathForUser>(
              "createBootApplicationSupportPathForUser")
          .method<&TesselHoisting::asyncSample>(
              "asyncSample:report:withReply:", {"processes", "reports"}, {"finished"}));
  return protocol;
}

}  // namespace hoist
