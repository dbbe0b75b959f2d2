// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "connection/protocols/CombineCommandMessaging.h"

namespace hoist {

const xpc::Protocol& combineCommandMessagingProtocol() {
  static const auto& protocol =
      *new xpc::Protocol(xpc::Protocol("CombineCommandMessaging")
                             .adopts(repositoryCommandMessagingProtocol())
                             .method<&CombineCommandMessaging::addNodeIdentifiedBy>(
                                 "addNodeIdentifiedBy:", {{"node", "FullyQualifiedIdentifier"}}));
  return protocol;
}

}  // namespace hoist
