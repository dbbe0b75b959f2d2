// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "connection/protocols/CorrectionCommandMessaging.h"

namespace hoist {

const xpc::Protocol& correctionCommandMessagingProtocol() {
  static const auto& protocol = *new xpc::Protocol(
      xpc::Protocol("CorrectionCommandMessaging")
          .adopts(repositoryCommandMessagingProtocol())
          .method<&CorrectionCommandMessaging::queryVersionWithReply>("queryVersionWithReply:", {},
                                                                      {"version"})
          .method<&CorrectionCommandMessaging::setVersion>("setVersion:", {"version"})
          .method<&CorrectionCommandMessaging::queryConfigurationIndexWithReply>(
              "queryConfigurationIndexWithReply:", {}, {"index"})
          .method<&CorrectionCommandMessaging::setConfigurationIndex>("setConfigurationIndex:",
                                                                      {"index"}));
  return protocol;
}

}  // namespace hoist
